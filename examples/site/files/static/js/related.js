getJson('related.json?story=the-long-ebb').then((stories) => {
  const box = document.querySelector('.related');
  for (const story of stories) {
    const card = document.createElement('div');
    addPicture(card, story.picture, '');
    card.append(story.title);
    box.append(card);
  }
});
