// Serves folders by nginx, which answers requests for byte ranges.
//
//   node serve.mjs [--port N] [FILE...]     the viewer and files, until Ctrl-C; prints an address for each file
import { spawn } from 'node:child_process';
import { existsSync, realpathSync } from 'node:fs';
import { mkdir, mkdtemp, readFile, rm, symlink, writeFile } from 'node:fs/promises';
import { createServer } from 'node:net';
import { homedir, tmpdir } from 'node:os';
import { basename, join, resolve } from 'node:path';
import { setTimeout as pause } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

const web = fileURLToPath(new URL('.', import.meta.url));

const configure = (port, folders) => `
daemon off; master_process off; pid nginx.pid; error_log error.log;
events { worker_connections 256; }
http {
  log_format ranges '$uri|$status|$body_bytes_sent|$http_range';
  access_log access.log ranges;
  client_body_temp_path t; proxy_temp_path t; fastcgi_temp_path t; uwsgi_temp_path t; scgi_temp_path t;
  types { text/html html; text/css css; text/javascript js mjs; application/wasm wasm; }
  default_type application/octet-stream;
  add_header Cache-Control no-cache;
  server {
    listen 127.0.0.1:${port};
    ${folders.map(([path, folder]) => `location ${path} { alias "${folder}/"; index index.html; }`).join('\n    ')}
  }
}
`;

/** Installed, or unpacked by scripts/dependencies.sh. */
function findNginx() {
  const cache = process.env.XDG_CACHE_HOME || join(homedir(), '.cache');
  const found = [join(cache, 'vxunpack/nginx/usr/sbin/nginx'), '/usr/sbin/nginx'].find(existsSync);
  if (!found) throw new Error('there is no nginx; scripts/dependencies.sh --web provides it');
  return found;
}

async function findPort() {
  const server = createServer().listen(0, '127.0.0.1');
  await new Promise((done) => server.once('listening', done));
  const { port } = server.address();
  await new Promise((done) => server.close(done));
  return port;
}

/** Serves folders, each at a path that begins and ends with a slash, on a free port or the one given. */
export async function startNginx(folders, port = undefined) {
  port ??= await findPort();
  const home = await mkdtemp(join(tmpdir(), 'vxunpack-web-'));
  await writeFile(join(home, 'nginx.conf'), configure(port, Object.entries(folders)));
  // It ends with this process, even if that is killed.
  const command = ['--pdeathsig', 'TERM', findNginx(), '-e', 'error.log', '-p', `${home}/`, '-c', 'nginx.conf'];
  const child = spawn('setpriv', command, { stdio: 'ignore' });
  const ended = new Promise((done) => child.once('exit', done).once('error', done));
  const hasEnded = () => child.exitCode !== null || child.signalCode !== null || child.pid === undefined;
  while (!hasEnded() && !existsSync(join(home, 'nginx.pid'))) await pause(20); // which it writes when it listens
  if (hasEnded()) {
    const log = await readFile(join(home, 'error.log'), 'utf8').catch(() => '');
    await rm(home, { recursive: true });
    throw new Error(`nginx does not start: ${log.split('\n')[0] || child.spawnfile}`);
  }
  let lines = 0;
  return {
    url: `http://127.0.0.1:${port}`,
    async stop() {
      child.kill();
      await ended;
      await rm(home, { recursive: true });
    },
    /** The requests since the last call, as { path, status, bytes, range }. */
    async takeLog() {
      const marker = `/marker-${lines}`; // nginx logs in the order of completion
      await (await fetch(`http://127.0.0.1:${port}${marker}`)).text();
      let log;
      do log = await readFile(join(home, 'access.log'), 'utf8');
      while (!log.includes(`${marker}|`));
      const all = log.trim().split('\n').map((line) => line.split('|'));
      const added = all.slice(lines).filter(([path]) => path !== marker);
      lines = all.length;
      return added.map(([path, status, bytes, range]) =>
        ({ path, status: Number(status), bytes: Number(bytes), range }));
    },
  };
}

async function main() {
  const { values, positionals } = parseArgs({ options: { port: { type: 'string' } }, allowPositionals: true });
  const files = positionals.length ? positionals : [join(web, '../examples/survey.vxl')];
  if (values.port !== undefined && !/^[1-9]\d{0,4}$/.test(values.port)) throw new Error(`${values.port} is not a port`);
  const links = await mkdtemp(join(tmpdir(), 'vxunpack-files-'));
  try {
    for (const file of files) {
      if (!existsSync(file)) throw new Error(`there is no file ${file}`);
      await symlink(resolve(file), join(links, basename(file))).catch(() => {
        throw new Error(`two files are named ${basename(file)}`);
      });
    }
    const nginx = await startNginx({ '/': join(web, 'viewer/dist'), '/data/': links }, values.port);
    for (const file of files) console.log(`${nginx.url}/?src=data/${encodeURIComponent(basename(file))}`);
    await new Promise((done) => ['SIGINT', 'SIGTERM', 'SIGHUP'].forEach((name) => process.once(name, done)));
    await nginx.stop();
  } finally {
    await rm(links, { recursive: true });
  }
}

if (process.argv[1] && realpathSync(process.argv[1]) === fileURLToPath(import.meta.url))
  await main().catch((error) => {
    console.error(`web: ${error.message}`);
    process.exitCode = 1;
  });
