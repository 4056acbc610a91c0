import { startBrowser } from './support/browser.mjs';
import { writeFileSync } from 'node:fs';
const b = await startBrowser({ '/speed/': '/work/speed/', '/tmp/': '/tmp/' });
for (const f of ['/speed/ten.vxl', '/tmp/wt-ten.vxl']) {
const page = await b.open('/pages/');
await page.setViewport({ width: 1280, height: 800 });
await b.takeLog();
const t = performance.now();
await page.goto(`${b.url}/viewer/?src=${f}`);
await page.waitForFunction(() => vxviewer.state().firstPictureMs !== null, { polling: 'raf' });
console.log('first', performance.now() - t, await page.evaluate(() => vxviewer.state()));
console.log((await b.takeLog()).map((l) => `${l.path} ${l.status} ${l.bytes} ${l.range.length > 60 ? l.range.split(',').length + ' ranges' : l.range}`));
await page.waitForFunction(() => ['idle', 'error'].includes(vxviewer.state().status));
console.log('idle', performance.now() - t, await page.evaluate(() => vxviewer.state()));
writeFileSync(`/tmp/wt-shot${f.includes('speed') ? 1 : 2}.png`, await page.screenshot());
console.log(page.failures, page.url());
await page.close();
}
await b.stop();
