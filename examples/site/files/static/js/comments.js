// Comments come half a second after the story, their avatars after them.
setTimeout(async () => {
  const comments = await getJson('comments.json?story=the-long-ebb');
  const list = document.querySelector('.comments');
  for (const {name, text} of comments) {
    const item = document.createElement('li');
    addPicture(item, `http://img.example.test/avatars/${name}.svg`, name);
    item.append(`${name}: ${text}`);
    list.append(item);
  }
}, 500);
