for (let row = 0; row < 2; ++row) {
  for (let column = 0; column < 3; ++column) {
    const tile = new Image();
    tile.src = `tiles/12/${column}/${row}.png`;
    document.querySelector('.map').append(tile);
  }
}
