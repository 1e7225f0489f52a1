import {pounds} from './money.js';

// Which kettles these are differs from load to load.
export async function showPicks(place) {
  const picks = await (await fetch('http://data.kettle.test:8081/picks.json')).json();
  for (const {picture, name, pence} of picks) {
    const card = document.createElement('article');
    const image = new Image(120, 120);
    image.src = picture;
    card.append(image, `${name}, ${pounds(pence)}`);
    place.append(card);
  }
}
