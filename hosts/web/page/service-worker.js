// Keeps the page for use without a network: what the network gives is shown and kept, and what was
// kept is shown without it.
'use strict';
const ours = 'kt7-'; // other pages of the origin have stores as well
const store = ours + '1';
const always = ['./', 'page.css', 'page.js', 'worker.js', 'icon.svg', 'page.webmanifest'];
const engines = [['kt7.js', 'kt7.wasm'], ['kt7-threads.js', 'kt7-threads.wasm', 'kt7-threads.worker.js']];

self.addEventListener('install', (event) => event.waitUntil((async () => {
    const cache = await caches.open(store);
    await cache.addAll(always);
    await cache.addAll(engines[self.crossOriginIsolated ? 1 : 0]);
    await self.skipWaiting();
})()));
self.addEventListener('activate', (event) => event.waitUntil((async () => {
    for (const name of await caches.keys())
        if (name.startsWith(ours) && name !== store) await caches.delete(name);
    await self.clients.claim();
})()));
self.addEventListener('fetch', (event) => {
    const url = new URL(event.request.url);
    if (event.request.method !== 'GET' || url.origin !== self.location.origin) return;
    event.respondWith((async () => {
        const cache = await caches.open(store);
        try {
            const fresh = await fetch(event.request);
            if (fresh.ok) await cache.put(event.request, fresh.clone()).catch(() => {}); // no room
            return fresh;
        } catch (error) {
            const kept = await cache.match(event.request, { ignoreSearch: true });
            if (kept) return kept;
            throw error;
        }
    })());
});
