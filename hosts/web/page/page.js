// The page: what is shown and asked for. All work on pixels is done by worker.js.

const $ = (id) => document.getElementById(id);
const threads = Math.min(4, navigator.hardwareConcurrency || 1);
const overviewSide = 1600; // pixels of the pictures that stand in while the worker is busy
const previewSide = 640; // a preview's part of the photo, in the photo's pixels

/* The worker. */

let worker, ready, waiting, lastId = 0;
let cancelFlag = null; // a number in the engine's memory, where that is shared

function startWorker() {
    waiting = new Map();
    cancelFlag = null;
    worker = new Worker('worker.js');
    ready = new Promise((resolve, reject) => {
        worker.onmessage = ({ data }) => {
            if (data.ready) {
                const flag = data.cancelFlag;
                cancelFlag = flag && new Int32Array(flag.memory, flag.at, 1);
                return resolve(data);
            }
            if (data.broken) return reject(new Error(data.broken));
            const request = waiting.get(data.id);
            if (!request) return;
            if (data.done !== undefined) return request.progress?.(data.done);
            waiting.delete(data.id);
            if (data.fatal) restart();
            if (data.error === undefined) return request.resolve(data.answer);
            request.reject(Object.assign(new Error(data.error), { cancelled: data.cancelled }));
        };
        worker.onerror = (event) => {
            event.preventDefault();
            const error = new Error('The engine stopped: ' + (event.message || 'it could not be loaded') + '.');
            reject(error);
            restart(error);
        };
    });
    ready.catch(() => {});
}

/** Ends the worker with all that it holds; what was asked of it is answered with the error. */
function restart(error = Object.assign(new Error('Cancelled.'), { cancelled: true })) {
    worker.terminate();
    const open = [...waiting.values()];
    startWorker();
    photo.held = false;
    for (const request of open) request.reject(error);
}

function ask(what, data = {}, progress = undefined) {
    const id = ++lastId;
    const answer = new Promise((resolve, reject) => waiting.set(id, { resolve, reject, progress }));
    worker.postMessage({ id, what, ...data });
    return answer;
}

/* What the page knows. */

const photo = {
    file: null, info: null,
    held: false, // by the worker
    result: false, // there is one, in the worker
    before: null, after: null, // overviews: bitmaps of the whole
};
const view = { scale: 1, x: 0, y: 0 }; // canvas pixels per pixel; the photo's pixel at the centre
let patches = {}; // sharp pictures of what is visible: before, after
let preview = null; // {x, y, width, height, bitmap}
let files = [];
let savedWithout = ''; // what the last file that was saved could not hold
let busy = false; // something can be cancelled
let inTurn = false; // all photos are worked on, one after the other
const canvas = $('picture');
const context = canvas.getContext('2d');

const settings = () => ({
    quality: Number($('quality').value), luma: Number($('luma').value),
    colour: Number($('colour').value), amount: Number($('amount').value) / 100, threads,
});

function say(text) { $('status').textContent = text; }
function complain(text) { $('error').textContent = text; }

/* Pictures. */

function overview(which) {
    const { width, height } = photo.info;
    const shrink = Math.min(1, overviewSide / Math.max(width, height));
    return ask('view', {
        which, x: 0, y: 0, width, height,
        outWidth: Math.max(1, Math.round(width * shrink)), outHeight: Math.max(1, Math.round(height * shrink)),
    });
}

function fitScale() {
    return Math.min(canvas.width / photo.info.width, canvas.height / photo.info.height);
}

/** What of the photo is visible, in whole pixels of it. */
function visible() {
    const { width, height } = photo.info;
    const left = Math.max(0, Math.floor(view.x - canvas.width / 2 / view.scale));
    const top = Math.max(0, Math.floor(view.y - canvas.height / 2 / view.scale));
    const right = Math.min(width, Math.ceil(view.x + canvas.width / 2 / view.scale));
    const bottom = Math.min(height, Math.ceil(view.y + canvas.height / 2 / view.scale));
    return { x: left, y: top, width: right - left, height: bottom - top };
}

let drawing = false;
function draw() {
    if (drawing) return;
    drawing = true;
    requestAnimationFrame(() => {
        drawing = false;
        paint();
    });
}

function paint() {
    context.setTransform(1, 0, 0, 1, 0, 0);
    context.clearRect(0, 0, canvas.width, canvas.height);
    if (!photo.before) return;
    const place = (image, part) => {
        if (!image) return;
        context.imageSmoothingEnabled = view.scale * part.width / image.width < 2;
        context.drawImage(image, canvas.width / 2 + (part.x - view.x) * view.scale,
            canvas.height / 2 + (part.y - view.y) * view.scale, part.width * view.scale, part.height * view.scale);
    };
    const whole = { x: 0, y: 0, width: photo.info.width, height: photo.info.height };
    place(photo.before, whole);
    if (patches.before) place(patches.before.bitmap, patches.before.part);
    if (!photo.after && !preview) return;
    const divide = Math.round(canvas.width * $('divider').value / 100);
    context.save();
    context.beginPath();
    context.rect(divide, 0, canvas.width - divide, canvas.height);
    context.clip();
    if (photo.after) {
        place(photo.after, whole);
        if (patches.after) place(patches.after.bitmap, patches.after.part);
    }
    if (preview) {
        place(preview.bitmap, preview);
        context.strokeStyle = '#ffd23f';
        context.lineWidth = 2;
        context.setLineDash([6, 4]);
        context.strokeRect(canvas.width / 2 + (preview.x - view.x) * view.scale,
            canvas.height / 2 + (preview.y - view.y) * view.scale,
            preview.width * view.scale, preview.height * view.scale);
    }
    context.restore();
    context.fillStyle = '#fff';
    context.fillRect(divide - 1, 0, 3, canvas.height);
    context.fillStyle = '#000';
    context.fillRect(divide, 0, 1, canvas.height);
}

let sharpening = false, sharpenAgain = false;
/** Fetches what is visible in its own pixels; one request at a time, the newest view last. */
async function sharpen() {
    if (!photo.info || !photo.held || busy) return;
    if (sharpening) {
        sharpenAgain = true;
        return;
    }
    sharpening = true;
    try {
        const part = visible();
        if (part.width < 1 || part.height < 1) return;
        const outWidth = Math.max(1, Math.min(part.width, Math.round(part.width * view.scale)));
        const outHeight = Math.max(1, Math.min(part.height, Math.round(part.height * view.scale)));
        const of = photo.file;
        for (const [which, name] of ['before', 'after'].entries()) {
            if (which === 1 && !photo.result) continue;
            const bitmap = await ask('view', { which, ...part, outWidth, outHeight });
            if (photo.file !== of) return;
            patches[name]?.bitmap.close();
            patches[name] = { bitmap, part };
        }
        draw();
    } catch { /* the worker was started anew; whoever did it asks again */
    } finally {
        sharpening = false;
        if (sharpenAgain) {
            sharpenAgain = false;
            sharpen();
        }
    }
}

function look(scale, x = view.x, y = view.y) {
    if (!photo.info) return;
    const { width, height } = photo.info;
    view.scale = Math.min(16, Math.max(Math.min(1, fitScale()), scale));
    const halfX = canvas.width / 2 / view.scale, halfY = canvas.height / 2 / view.scale;
    const held = (v, half, size) => (2 * half >= size ? size / 2 : Math.min(size - half, Math.max(half, v)));
    view.x = held(x, halfX, width);
    view.y = held(y, halfY, height);
    draw();
    clearTimeout(look.timer);
    look.timer = setTimeout(sharpen, 120);
}

function resize() {
    const box = canvas.getBoundingClientRect();
    const fitted = photo.info && Math.abs(view.scale - fitScale()) < 1e-6;
    canvas.width = Math.max(1, Math.round(box.width * devicePixelRatio));
    canvas.height = Math.max(1, Math.round(box.height * devicePixelRatio));
    if (photo.info) look(fitted ? fitScale() : view.scale);
}

/* Photos. */

function forget() {
    for (const bitmap of [photo.before, photo.after, preview?.bitmap, patches.before?.bitmap, patches.after?.bitmap])
        bitmap?.close();
    photo.before = photo.after = preview = null;
    patches = {};
    photo.result = false;
}

function offer() {
    $('denoise').disabled = !photo.info || busy || inTurn;
    $('cancel').disabled = !busy;
    $('save').disabled = !photo.result || busy || inTurn;
    $('all').disabled = $('list').disabled = busy || inTurn;
    $('all').hidden = $('photos').hidden = files.length < 2;
}

function whatIsLost() {
    const { info } = photo;
    if (!info) return '';
    if (info.byBrowser)
        return 'The browser opened this picture: 8 bits, colours turned into sRGB, metadata not kept.';
    const lost = info.lost ? [info.lost] : [];
    if ($('format').value !== '0') {
        if (info.bits === 16) lost.push('half of the 16 bits, of which JPEG has 8');
        if (info.channels % 2 === 0) lost.push('transparency, for which white is laid below');
    }
    if (savedWithout) lost.push(savedWithout);
    const kept = ['Exif', 'colour profile', 'XMP'].filter((_, i) => info.metadata >> i & 1);
    return (kept.length ? 'Kept: ' + kept.join(', ') + '. ' : '') + (lost.length ? 'Lost: ' + lost.join('; ') + '. ' : '')
        + ((info.metadata & 18) === 2 ? 'The profile is not one of RGB; the picture here is shown as if it were sRGB.' : '');
}

/** Has the worker read the photo; false when another was chosen meanwhile. */
async function hold(file) {
    const info = await ask('open', { file });
    if (photo.file !== file) return false;
    photo.info = info;
    photo.held = true;
    return true;
}

async function open(file) {
    complain('');
    say('Opening ' + file.name + '…');
    forget();
    photo.file = file;
    photo.info = null;
    savedWithout = '';
    offer();
    try {
        await ready;
        if (!await hold(file)) return false;
        const before = await overview(0);
        if (photo.file !== file) {
            before.close();
            return false;
        }
        photo.before?.close();
        photo.before = before;
        $('welcome').hidden = true;
        $('view').hidden = $('keys').hidden = false;
        const { width, height, bits } = photo.info;
        canvas.setAttribute('aria-label', `${file.name}, ${width} by ${height} pixels`);
        const like = (photo.info.metadata & 8) !== 0;
        $('like').hidden = $('like').disabled = !like;
        $('format').value = like ? '-1' : photo.info.jpeg ? '95' : '0';
        resize();
        look(fitScale());
        say(`${file.name}: ${width} × ${height}, ${bits} bits. Ready to denoise.`);
        $('progress').value = 0;
        return true;
    } catch (error) {
        if (photo.file !== file) return false;
        photo.file = photo.info = null;
        draw();
        say('No photo is open.');
        complain(`${file.name}: ${error.message}`);
        return false;
    } finally {
        $('lost').textContent = whatIsLost();
        offer();
    }
}

async function denoise() {
    if (!photo.info || busy) return false;
    complain('');
    say('Denoising…');
    $('progress').value = 0;
    clearTimeout(askPreview.timer);
    const begin = performance.now();
    wantCancel(0);
    try {
        busy = true;
        offer();
        if (!photo.held) await hold(photo.file);
        const { memory } = await ask('denoise', settings(), (done) => { $('progress').value = done; });
        photo.result = true;
        const after = await overview(1);
        photo.after?.close();
        photo.after = after;
        dropPreview();
        patches.after?.bitmap.close();
        delete patches.after;
        $('progress').value = 1;
        const seconds = (performance.now() - begin) / 1000;
        say(`Done in ${seconds.toFixed(1)} s.`);
        document.documentElement.dataset.seconds = seconds.toFixed(3);
        document.documentElement.dataset.memory = memory;
        return true;
    } catch (error) {
        $('progress').value = 0;
        if (error.cancelled) {
            say('Cancelled.');
        } else {
            say('');
            complain(error.message);
        }
        return false;
    } finally {
        busy = false;
        wantCancel(0); // previews run on
        if (!photo.held && photo.file) await recover();
        offer();
        draw();
        sharpen();
    }
}

/** After the worker was started anew, in which its result was lost. */
async function recover() {
    photo.after?.close();
    patches.after?.bitmap.close();
    delete patches.after;
    photo.after = null;
    photo.result = false;
    try {
        await hold(photo.file);
    } catch (error) {
        complain(error.message);
    }
}

function wantCancel(value) {
    if (cancelFlag) Atomics.store(cancelFlag, 0, value);
}

function cancel() {
    if (!busy) return;
    say('Cancelling…');
    if (cancelFlag) wantCancel(1);
    else restart(); // a worker at work hears nothing else
}

function dropPreview() {
    preview?.bitmap.close();
    preview = null;
}

let previewing = false, previewAgain = false;
async function showPreview() {
    if (!photo.info || !photo.held || busy) return;
    if (previewing) {
        previewAgain = true;
        return;
    }
    previewing = true;
    try {
        const part = visible();
        const middle = (from, size) => {
            const held = Math.min(size, previewSide);
            return [Math.round(from + (size - held) / 2), held];
        };
        const [x, width] = middle(part.x, part.width), [y, height] = middle(part.y, part.height);
        const bitmap = await ask('preview', { x, y, width, height, ...settings() });
        dropPreview();
        preview = { x, y, width, height, bitmap };
        say('Preview of the framed part, in fast quality. Denoise works on the whole.');
        document.documentElement.dataset.previews = Number(document.documentElement.dataset.previews || 0) + 1;
        draw();
    } catch (error) {
        if (!error.cancelled) complain(error.message);
    } finally {
        previewing = false;
        if (previewAgain) {
            previewAgain = false;
            showPreview();
        }
    }
}

function askPreview() {
    clearTimeout(askPreview.timer);
    askPreview.timer = setTimeout(showPreview, 60);
}

async function save() {
    if (!photo.result) return;
    const { file } = photo; // another may be chosen meanwhile
    try {
        say('Writing the file…');
        const { blob, lost } = await ask('save', { jpegQuality: Number($('format').value) });
        const link = document.createElement('a');
        link.href = URL.createObjectURL(blob);
        const stem = file.name.replace(/\.[^.]*$/, '') || 'photo';
        link.download = stem + '_clean' + (blob.type === 'image/png' ? '.png' : '.jpg');
        link.click();
        setTimeout(() => URL.revokeObjectURL(link.href), 30000);
        if (photo.file !== file) return;
        savedWithout = lost;
        $('lost').textContent = whatIsLost();
        say(`${link.download} is on its way to your downloads.`);
    } catch (error) {
        complain(error.message);
    }
}

async function take(chosen) {
    if (chosen.length === 0) return;
    if (busy || inTurn) return complain('The photo before is still being denoised: wait for it or cancel, then choose again.');
    files = [...chosen];
    $('list').replaceChildren(...files.map((file, i) => new Option(file.name, i)));
    $('list').value = '0';
    await open(files[0]);
}

/* Events. */

$('files').addEventListener('change', (event) => {
    take(event.target.files);
    event.target.value = ''; // or the same file could not be chosen again
});
for (const kind of ['dragover', 'dragleave', 'drop'])
    addEventListener(kind, (event) => {
        event.preventDefault();
        $('stage').classList.toggle('over', kind === 'dragover');
        if (kind === 'drop') take(event.dataTransfer.files);
    });
addEventListener('paste', (event) => take(event.clipboardData.files));
$('controls').addEventListener('submit', (event) => {
    event.preventDefault();
    denoise();
});
$('cancel').addEventListener('click', cancel);
$('save').addEventListener('click', save);
$('all').addEventListener('click', async () => {
    const failed = [];
    let stopped = false;
    inTurn = true;
    for (const [i, file] of files.entries()) {
        $('list').value = String(i);
        if (!await open(file)) {
            failed.push($('error').textContent);
            continue;
        }
        stopped = !await denoise();
        if (stopped) break;
        await save();
    }
    inTurn = false;
    offer();
    if (!stopped) say('All are done. If files did not arrive, allow this page several downloads.');
    if (failed.length) complain(failed.join(' '));
});
$('list').addEventListener('change', () => open(files[Number($('list').value)]));
$('format').addEventListener('change', () => {
    savedWithout = '';
    $('lost').textContent = whatIsLost();
});
for (const name of ['luma', 'colour', 'amount'])
    $(name).addEventListener('input', () => {
        $(name + 'Out').textContent = name === 'amount' ? $(name).value + ' %' : Number($(name).value).toFixed(1);
        askPreview();
    });
$('divider').addEventListener('input', draw);
$('fit').addEventListener('click', () => look(fitScale()));
$('one').addEventListener('click', () => look(1));
$('in').addEventListener('click', () => look(view.scale * 1.5));
$('out').addEventListener('click', () => look(view.scale / 1.5));

canvas.addEventListener('keydown', (event) => {
    if (!photo.info || event.ctrlKey || event.metaKey || event.altKey) return;
    const step = 80 / view.scale;
    const moves = { ArrowLeft: [-step, 0], ArrowRight: [step, 0], ArrowUp: [0, -step], ArrowDown: [0, step] };
    const scales = { '+': view.scale * 1.5, '=': view.scale * 1.5, '-': view.scale / 1.5, 0: fitScale(), 1: 1 };
    if (moves[event.key]) look(view.scale, view.x + moves[event.key][0], view.y + moves[event.key][1]);
    else if (scales[event.key]) look(scales[event.key]);
    else return;
    event.preventDefault();
});

const pointers = new Map();
let pinch = 0, slides = false;
function at(event) {
    const box = canvas.getBoundingClientRect();
    return { x: (event.clientX - box.left) * devicePixelRatio, y: (event.clientY - box.top) * devicePixelRatio };
}
function zoomAt(point, factor) {
    const x = view.x + (point.x - canvas.width / 2) / view.scale, y = view.y + (point.y - canvas.height / 2) / view.scale;
    const scale = Math.min(16, Math.max(Math.min(1, fitScale()), view.scale * factor));
    look(scale, x - (point.x - canvas.width / 2) / scale, y - (point.y - canvas.height / 2) / scale);
}
canvas.addEventListener('pointerdown', (event) => {
    if (!photo.info) return;
    canvas.setPointerCapture(event.pointerId);
    const point = at(event);
    pointers.set(event.pointerId, point);
    slides = (photo.after || preview) && pointers.size === 1 &&
        Math.abs(point.x - canvas.width * $('divider').value / 100) < 16 * devicePixelRatio;
});
canvas.addEventListener('pointermove', (event) => {
    const before = pointers.get(event.pointerId);
    if (!before) return;
    const now = at(event);
    pointers.set(event.pointerId, now);
    if (pointers.size === 2) {
        const [a, b] = [...pointers.values()];
        const wide = Math.hypot(a.x - b.x, a.y - b.y);
        if (pinch > 0) zoomAt({ x: (a.x + b.x) / 2, y: (a.y + b.y) / 2 }, wide / pinch);
        pinch = wide;
    } else if (slides) {
        $('divider').value = 100 * now.x / canvas.width;
        draw();
    } else {
        look(view.scale, view.x - (now.x - before.x) / view.scale, view.y - (now.y - before.y) / view.scale);
    }
});
for (const kind of ['pointerup', 'pointercancel'])
    canvas.addEventListener(kind, (event) => {
        pointers.delete(event.pointerId);
        pinch = 0;
    });
canvas.addEventListener('wheel', (event) => {
    if (!photo.info) return;
    event.preventDefault();
    zoomAt(at(event), Math.exp(-event.deltaY / 400));
}, { passive: false });

new ResizeObserver(resize).observe(canvas);
startWorker();
ready.then(({ threads: several }) => {
    if (!photo.file) say('Ready' + (several ? `, with ${threads} threads.` : '.'));
    document.documentElement.dataset.ready = performance.now().toFixed(0);
}, (error) => complain('The engine could not be loaded: ' + error.message));
navigator.serviceWorker?.register('service-worker.js').catch(() => {});
