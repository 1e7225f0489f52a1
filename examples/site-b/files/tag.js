// Somebody else's script: counts the visit over a redirect, asks for an offer, and shows it.
if (document.documentElement.dataset.consent === 'yes') {
  const base = new URL(document.currentScript.src).origin;
  new Image().src = `${base}/sync?partner=7&cb=${Math.random()}`;
  fetch(`${base}/bid.json?slot=${Math.random().toString(36).slice(2)}`).then((answer) => answer.json()).then(({creative}) => {
    const offer = new Image(300, 100);
    offer.src = creative;
    document.body.append(offer);
  });
}
