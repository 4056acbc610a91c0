// Chromium with software WebGL, and pages that read from nginx.
import puppeteer from 'puppeteer-core';
import { startNginx } from '../../serve.mjs';
import { root } from '../native.mjs';

const flags = ['--no-sandbox', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync', '--use-angle=swiftshader', '--enable-unsafe-swiftshader'];

/** nginx at `url`, which serves these folders besides the decoder, the viewer and the modules of pages; and pages. */
export async function startBrowser(folders) {
  const nginx = await startNginx({
    '/decoder/': `${root}web/decoder/dist`, '/pages/': `${root}web/tests/pages`, '/viewer/': `${root}web/viewer/dist`,
    ...folders,
  });
  const browser = await puppeteer.launch({ executablePath: '/usr/bin/chromium', pipe: true, args: flags })
    .catch(async (error) => {
      await nginx.stop();
      throw error;
    });
  const failures = [];
  return {
    url: nginx.url,
    takeLog: nginx.takeLog,
    /** The errors that no script of a page has caught. */
    failures,
    /** A new page. Its clock is `haste` times as fast. */
    async open(path, haste = 1) {
      const page = await browser.newPage();
      await page.evaluateOnNewDocument((factor) => {
        const { setTimeout } = window;
        window.setTimeout = (action, ms, ...rest) => setTimeout(action, ms / factor, ...rest);
        const now = performance.now.bind(performance);
        performance.now = () => now() * factor;
      }, haste);
      page.setDefaultTimeout(20_000);
      page.on('pageerror', (error) => failures.push(error.message));
      await page.goto(nginx.url + path);
      return page;
    },
    async stop() {
      await browser.close();
      await nginx.stop();
    },
  };
}
