// The reader poll, a second step of lateness behind latest.js.
getJson('poll.json').then((poll) => {
  const box = document.querySelector('.poll');
  box.append(poll.question);
  addPicture(box, poll.picture, 'poll so far');
});
