// The offer of the day is picked per load, so its address is never the same twice.
const deal = new Image();
deal.className = 'deal';
deal.src = `deal.svg?slot=${Math.random().toString(36).slice(2, 10)}`;
document.body.append(deal);
