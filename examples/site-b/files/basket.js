import {pounds} from './money.js';

// From the page's own origin, and never stored.
export async function showBasket(place) {
  const {pieces, total} = await (await fetch('/basket.json')).json();
  place.textContent = `${pieces} for ${pounds(total)}`;
}
