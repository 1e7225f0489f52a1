// The modules that each page needs; what they fetch themselves is late.
import {showBasket} from './basket.js';
import {showPicks} from './picks.js';
import {showReviews, showStars} from './stars.js';

showBasket(document.querySelector('.basket b'));
showStars(document.querySelectorAll('[data-kettle]'));
addEventListener('load', () => {
  const picks = document.querySelector('.picks');
  if (picks) setTimeout(() => showPicks(picks), 250);
  const reviews = document.querySelector('.reviews');
  if (reviews) showReviews(reviews);
  if (document.querySelector('.spin')) import('./spin.js');
});
