import { byId, element } from './Dom.js';
import { Page } from './Page.js';

try {
  const page = new Page();
  // For embedding and for tests, see README.md.
  Object.assign(window, { vxviewer: page.remote });
  page.start();
} catch (error) {
  // Mostly because WebGL 2 is missing.
  const box = byId('error');
  box.hidden = false;
  box.replaceChildren(element('p', {}, 'This browser cannot show point clouds: WebGL 2 is not available. ' +
    'Another browser, or a newer graphics driver, may help.'));
  console.error(error);
}
