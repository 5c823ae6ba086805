// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The service worker: the page works without a network once it was loaded. vite.config.js fills in what it consists of.
const files = self.__files;
const version = self.__version;

self.addEventListener("install", (event) => {
  self.skipWaiting();
  event.waitUntil(caches.open(version).then((cache) => cache.addAll(files)));
});

self.addEventListener("activate", (event) => {
  const clean = async () => {
    for (const name of await caches.keys()) if (name !== version) await caches.delete(name);
    await self.clients.claim();
  };
  event.waitUntil(clean());
});

self.addEventListener("fetch", (event) => {
  if (event.request.method !== "GET") return;
  // Some servers say that files vary with who asks; these do not.
  const cached = caches.match(event.request, { ignoreVary: true });
  event.respondWith(cached.then((found) => found ?? fetch(event.request)));
});
