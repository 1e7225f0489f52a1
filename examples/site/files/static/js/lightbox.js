// Brings its own sheet, asks for the captions and fetches the first large pictures ahead of a tap.
const sheet = document.createElement('link');
sheet.rel = 'stylesheet';
sheet.href = 'http://static.example.test/css/lightbox.css';
document.head.append(sheet);
getJson('captions.json').then((captions) => {
  document.querySelectorAll('.wall figcaption').forEach((line, i) => { line.textContent = captions[i]; });
  const box = document.querySelector('.lightbox');
  for (const number of ['01', '02', '03']) addPicture(box, `http://img.example.test:8080/full/shore-${number}.png`, captions[number - 1]);
});
