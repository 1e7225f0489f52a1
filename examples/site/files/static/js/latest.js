// The home page's "latest" list: script, then JSON, then pictures that differ from load to load.
getJson('latest.json').then((stories) => {
  const list = document.querySelector('.latest');
  for (const story of stories) {
    const item = document.createElement('li');
    addPicture(item, story.picture, '');
    item.append(story.title);
    list.append(item);
  }
  setTimeout(() => loadScript('poll.js'), 300);
});
