// Turns the kettle: a list of frames, then all of them.
const place = document.querySelector('.spin');
const {frames} = await (await fetch(place.dataset.frames)).json();
for (const frame of frames) {
  const image = new Image(200, 200);
  image.src = frame;
  place.append(image);
}
