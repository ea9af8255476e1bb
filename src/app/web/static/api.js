// Talks to the server: every request carries the token in its header, which is what lets a
// request change anything; the token comes from the address `unwarp serve` printed.
const params = new URLSearchParams(location.search);
if (params.has('token')) {
  sessionStorage.setItem('unwarp-token', params.get('token'));
  history.replaceState(null, '', location.pathname);
}
export const token = sessionStorage.getItem('unwarp-token') || '';

export class ApiError extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

export async function api(path, body) {
  const options = { headers: { 'X-Unwarp-Token': token } };
  if (body !== undefined) {
    options.method = 'POST';
    options.headers['Content-Type'] = 'application/json';
    options.body = JSON.stringify(body);
  }
  const response = await fetch(path, options);
  const data = await response.json().catch(() => ({}));
  if (!response.ok) throw new ApiError(response.status, data.error || response.statusText);
  return data;
}

export async function upload(files) {
  const form = new FormData();
  for (const file of files) form.append('file', file, file.name);
  const response = await fetch('/api/upload', {
    method: 'POST', headers: { 'X-Unwarp-Token': token }, body: form,
  });
  const data = await response.json().catch(() => ({}));
  if (!response.ok) throw new ApiError(response.status, data.error || response.statusText);
  return data;
}

export function fileURL(path, download = false) {
  return `/api/file?path=${encodeURIComponent(path)}${download ? '&download=1' : ''}`;
}

export function zipURL(paths) {
  return '/api/zip?' + paths.map((p) => `path=${encodeURIComponent(p)}`).join('&');
}

export function thumbnailURL(id, size = 256) {
  return `/api/library/thumbnail?id=${encodeURIComponent(id)}&size=${size}`;
}

// Elements without innerHTML: h('button', {class: 'x', onclick}, 'text', child...).
export function h(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [key, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (key.startsWith('on')) element.addEventListener(key.slice(2), value);
    else if (key === 'dataset') Object.assign(element.dataset, value);
    else element.setAttribute(key, value === true ? '' : value);
  }
  for (const child of children.flat()) {
    if (child === null || child === undefined || child === false) continue;
    element.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
  return element;
}

// A help text's runs from the server ([{text, style}]) as nodes; a "red" run is marked.
export function styledText(runs) {
  return runs.map((run) => (run.style ? h('span', { class: `styled-${run.style}` }, run.text) : document.createTextNode(run.text)));
}

// This tab's editing walk on the server: an id of its own, kept while the tab lives.
export function flowId() {
  let id = sessionStorage.getItem('unwarp-flow');
  if (!id) {
    id = crypto.randomUUID();
    sessionStorage.setItem('unwarp-flow', id);
  }
  return id;
}
