// The shop's two pages.

const head = (title, sheet) => `<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>${title}</title>
<link rel="icon" href="data:,">
<script src="http://assets.kettle.test/consent.js"></script>
<link rel="stylesheet" href="http://assets.kettle.test/shop.css">
<link rel="stylesheet" href="http://assets.kettle.test/${sheet}.css">
<script async src="http://tags.adverts.test:8082/tag.js?shop=kettle"></script>
<script type="module" src="http://assets.kettle.test/main.js"></script>
</head>
<body>
<header><img src="http://assets.kettle.test/logo.svg" alt="Brass &amp; Steam"><button class="search">
<img src="http://assets.kettle.test/lens.svg" alt="Search"></button><a class="basket" href="/basket"><img src="http://assets.kettle.test/basket.svg" alt=""><b></b></a></header>
`;

const foot = `<footer>Brass &amp; Steam. Kettles that sing.</footer>
</body>
</html>
`;

const card = ({id, name, pounds}) => `<article data-kettle="${id}"><img src="http://media.kettle.test/k/${id}-240.png" width="240" height="240" loading="eager" alt="">
<h3><a href="/kettles/${id}">${name}</a></h3><p>&pound;${pounds} <span class="stars"></span></p></article>
`;

export const frontPage = (kettles, brands) => `${head('Brass & Steam', 'front')}<main>
<section class="banner"><img src="http://media.kettle.test/banner/today" width="800" height="320" alt="This week"></section>
<section class="cards">
${kettles.map(card).join('')}</section>
<h2>Picked for you</h2>
<section class="picks"></section>
<section class="brands">${brands.map((name) => `<img src="http://assets.kettle.test/brands/${name}.svg" alt="${name}">`).join('\n')}</section>
</main>
${foot}`;

export const productPage = (kettle, views, others) => `${head(`${kettle.name} - Brass & Steam`, 'product')}<main>
<h1>${kettle.name}</h1>
<section class="views">
${views.map((view) => `<img src="http://media.kettle.test/k/${view}" width="480" height="480" alt="">`).join('\n')}
</section>
<!--pause: the price takes a moment-->
<p class="price">&pound;${kettle.pounds} <span class="stock"></span></p>
<section class="spin" data-frames="http://data.kettle.test:8081/frames.json?of=${kettle.id}"></section>
<h2>What others say</h2>
<section class="reviews"></section>
<h2>Goes with</h2>
<section class="cards">
${others.map(card).join('')}</section>
</main>
${foot}`;
