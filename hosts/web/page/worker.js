// Runs the engine, so that the page never waits. One request at a time, in order.
'use strict';
const threaded = self.crossOriginIsolated === true;
const name = threaded ? 'kt7-threads' : 'kt7';
importScripts(name + '.js');

let asked = 0; // number of the request that runs
let lastReport = 0;
const engine = Kt7({
    mainScriptUrlOrBlob: name + '.js',
    progress(done) {
        const now = performance.now();
        if (now - lastReport > 40 || done === 1) {
            lastReport = now;
            postMessage({ id: asked, done });
        }
        return true;
    },
});
// Where memory is shared, the page cancels by writing into it; otherwise by ending this worker.
engine.then((kt7) => postMessage({
    ready: true, threads: threaded,
    cancelFlag: threaded ? { memory: kt7.HEAPU8.buffer, at: kt7._kt7WebCancelFlag() } : null,
}),
    (error) => postMessage({ broken: String(error) }));

function check(kt7, outcome) {
    if (outcome === -1) throw Object.assign(new Error('Cancelled.'), { cancelled: true });
    if (outcome !== 1) throw new Error(kt7.UTF8ToString(kt7._kt7WebMessage()));
}

// Memory that another thread made larger comes into sight when the engine's own code looks at it.
function heap(kt7) {
    kt7.UTF8ToString(kt7._kt7WebMessage());
    return kt7.HEAPU8;
}

function put(kt7, bytes) {
    const at = kt7._kt7WebBuffer(bytes.length);
    if (at === 0) throw new Error('There is not enough memory for this picture.');
    heap(kt7).set(bytes, at);
}

// A copy: the engine's memory may move.
function bytesOf(kt7) {
    const at = kt7._kt7WebBytes();
    const copy = heap(kt7).slice(at, at + kt7._kt7WebSize());
    kt7._kt7WebRelease();
    return copy;
}

// A photo with a profile comes as a PNG, for the browser to show its colours by it.
async function viewOf(kt7, width, height) {
    const bytes = bytesOf(kt7);
    return createImageBitmap(kt7._kt7WebMetadata() & 16 ? new Blob([bytes], { type: 'image/png' })
        : new ImageData(new Uint8ClampedArray(bytes.buffer), width, height));
}

async function browserPixels(kt7, file) {
    let bitmap;
    try {
        bitmap = await createImageBitmap(file);
    } catch {
        throw new Error('Neither this page nor the browser can read this file as a picture.');
    }
    try {
        check(kt7, kt7._kt7WebCheckSize(bitmap.width, bitmap.height));
        const canvas = new OffscreenCanvas(bitmap.width, bitmap.height);
        const context = canvas.getContext('2d', { willReadFrequently: true });
        context.drawImage(bitmap, 0, 0);
        return context.getImageData(0, 0, bitmap.width, bitmap.height);
    } finally {
        bitmap.close();
    }
}

function has(bytes, ...start) {
    return start.every((value, i) => bytes[i] === value);
}

const requests = {
    async open(kt7, { file }) {
        if (file.size > 500e6) throw new Error('The file is larger than 500 MB, which is too large for a page.');
        const start = new Uint8Array(await file.slice(0, 8).arrayBuffer());
        const tiff = [0x2a, 0x2b].some((version) =>
            has(start, 0x49, 0x49, version, 0) || has(start, 0x4d, 0x4d, 0, version));
        const format = [has(start, 0xff, 0xd8), has(start, 0x89, 0x50, 0x4e, 0x47), tiff].indexOf(true);
        if (format >= 0) {
            put(kt7, new Uint8Array(await file.arrayBuffer()));
            check(kt7, kt7._kt7WebOpen(format));
        } else {
            const pixels = await browserPixels(kt7, file);
            put(kt7, new Uint8Array(pixels.data.buffer));
            check(kt7, kt7._kt7WebOpenPixels(pixels.width, pixels.height));
        }
        return {
            width: kt7._kt7WebWidth(), height: kt7._kt7WebHeight(), bits: kt7._kt7WebBits(),
            channels: kt7._kt7WebChannels(), metadata: kt7._kt7WebMetadata(),
            lost: kt7.UTF8ToString(kt7._kt7WebLost()), jpeg: format === 0, byBrowser: format < 0,
        };
    },
    denoise(kt7, { quality, luma, colour, amount, threads }) {
        check(kt7, kt7._kt7WebDenoise(quality, luma, colour, amount, threads));
        return { memory: heap(kt7).length };
    },
    preview(kt7, { x, y, width, height, luma, colour, amount, threads }) {
        check(kt7, kt7._kt7WebPreview(x, y, width, height, luma, colour, amount, threads));
        return viewOf(kt7, width, height);
    },
    view(kt7, { which, x, y, width, height, outWidth, outHeight }) {
        check(kt7, kt7._kt7WebView(which, x, y, width, height, outWidth, outHeight));
        return viewOf(kt7, outWidth, outHeight);
    },
    save(kt7, { jpegQuality }) {
        check(kt7, kt7._kt7WebSave(jpegQuality));
        const type = jpegQuality !== 0 ? 'image/jpeg' : 'image/png';
        return { blob: new Blob([bytesOf(kt7)], { type }), lost: kt7.UTF8ToString(kt7._kt7WebLost()) };
    },
};

let queue = Promise.resolve();
self.onmessage = ({ data }) => {
    queue = queue.then(async () => {
        try {
            const kt7 = await engine;
            asked = data.id;
            const answer = await requests[data.what](kt7, data);
            const moved = answer instanceof ImageBitmap ? [answer] : [];
            postMessage({ id: data.id, answer }, moved);
        } catch (error) {
            postMessage({ id: data.id, error: error.message || String(error), cancelled: error.cancelled,
                fatal: error instanceof WebAssembly.RuntimeError });
        }
    });
};
