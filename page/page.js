// The script of a page that shows recorded runs. The rules of the game, the reading of a tape and the picture are
// the module's; here are the browser's own canvas, keys and clock. Text of strangers is only ever set as text.
'use strict';
(async () => {
  const at = id => document.getElementById(id);
  const data = JSON.parse(at('data').textContent);
  const bytesOf = base64 => Uint8Array.from(atob(base64), c => c.charCodeAt(0));
  // What unpacks to anything but as many bytes is damaged. No row holds a tape of two megabytes.
  const unpacked = async (base64, size) => {
    const damaged = new Error('what is packed in this page is damaged');
    if (size > 2 << 20) throw damaged;
    const whole = new Uint8Array(size);
    const parts = new Blob([bytesOf(base64)]).stream().pipeThrough(new DecompressionStream('deflate')).getReader();
    let filled = 0;
    for (let part = await parts.read(); !part.done; part = await parts.read()) {
      if (part.value.length > size - filled) throw damaged;
      whole.set(part.value, filled);
      filled += part.value.length;
    }
    if (filled < size) throw damaged;
    return whole;
  };
  const show = (element, text) => { if (element.textContent !== text) element.textContent = text; };
  const number = n => n.toLocaleString('en-GB');

  const well = at('well');
  const ink = well.getContext('2d');
  const fonts = [];
  let game;  // the module

  const textAt = (place, size) => new TextDecoder().decode(new Uint8Array(game.memory.buffer, place, size));
  const said = place => textAt(place, game.textSize());
  const css = color => '#' + color.toString(16).padStart(6, '0');
  const strokeOrFill = (color, width) => {
    if (width > 0) {
      ink.strokeStyle = css(color);
      ink.lineWidth = width;
      ink.stroke();
    } else {
      ink.fillStyle = css(color);
      ink.fill();
    }
  };
  const roundRect = (x, y, w, h, radius) => {
    const r = Math.min(radius, w / 2, h / 2);
    ink.beginPath();
    if (r <= 0) return ink.rect(x, y, w, h);
    ink.moveTo(x + r, y);
    ink.arcTo(x + w, y, x + w, y + h, r);
    ink.arcTo(x + w, y + h, x, y + h, r);
    ink.arcTo(x, y + h, x, y, r);
    ink.arcTo(x, y, x + w, y, r);
    ink.closePath();
  };
  const ellipse = (x, y, w, h) => {
    ink.beginPath();
    ink.ellipse(x + w / 2, y + h / 2, Math.max(w, 0) / 2, Math.max(h, 0) / 2, 0, 0, 2 * Math.PI);
  };
  const measured = (font, text) => { ink.font = fonts[font]; return ink.measureText(text); };
  const page = {
    makeFont: (place, size) => fonts.push(textAt(place, size)) - 1,
    // Where a browser does not know these of a font, those of a text with long letters do.
    ascent: font => measured(font, '\u00c5').fontBoundingBoxAscent ?? measured(font, '\u00c5').actualBoundingBoxAscent,
    descent: font => measured(font, 'g').fontBoundingBoxDescent ?? measured(font, 'g').actualBoundingBoxDescent,
    measure: (font, place, size) => measured(font, textAt(place, size)).width,
    fill: (x, y, w, h, color) => { ink.fillStyle = css(color); ink.fillRect(x, y, w, h); },
    line: (x1, y1, x2, y2, color, width) => {
      ink.beginPath();
      ink.lineCap = width > 1 ? 'round' : 'square';
      ink.moveTo(x1, y1);
      ink.lineTo(x2, y2);
      strokeOrFill(color, width);
    },
    roundRect: (x, y, w, h, radius, color, width) => { roundRect(x, y, w, h, radius); strokeOrFill(color, width); },
    ellipse: (x, y, w, h, color, width) => { ellipse(x, y, w, h); strokeOrFill(color, width); },
    text: (x, baseline, place, size, font, color) => {
      ink.font = fonts[font];
      ink.fillStyle = css(color);
      ink.fillText(textAt(place, size), x, baseline);
    },
    image: (place, imageW, imageH, x, y, w, h) => {
      const picture = document.createElement('canvas');
      picture.width = imageW;
      picture.height = imageH;
      const pixels = new Uint8ClampedArray(game.memory.buffer.slice(place, place + 4 * imageW * imageH));
      picture.getContext('2d').putImageData(new ImageData(pixels, imageW, imageH), 0, 0);
      ink.imageSmoothingQuality = 'high';
      ink.drawImage(picture, x, y, w, h);
    },
    clipRoundRect: (x, y, w, h, radius) => { ink.save(); roundRect(x, y, w, h, radius); ink.clip(); },
    clipEllipse: (x, y, w, h) => { ink.save(); ellipse(x, y, w, h); ink.clip(); },
    unclip: () => ink.restore(),
  };
  // The C library names these; nothing writes to a file here.
  const noFiles = { fd_close: () => 52, fd_seek: () => 52, fd_write: () => 52 };

  const done = () => { document.documentElement.dataset.ready = 'yes'; };
  show(at('report'), data.report);
  at('told').hidden = data.report === '';
  if (!window.DecompressionStream) {
    show(at('findings'), 'This browser is too old to unpack what is in this page. Chromium can from version 80 on, ' +
                         'Firefox from 113, Safari from 16.4.');
    return done();
  }
  try {
    const module = await WebAssembly.instantiate(await unpacked(at('module').textContent, data.module_bytes),
                                                 { page, wasi_snapshot_preview1: noFiles });
    game = module.instance.exports;
    game._initialize();
  } catch (why) {
    show(at('findings'), 'This browser cannot run the simulation: ' + why.message);
    return done();
  }

  // ---- What a run is found to be.

  const put = bytes => {
    const place = game.room(bytes.length);  // makes the memory larger at times, which is another buffer then
    new Uint8Array(game.memory.buffer, place, bytes.length).set(bytes);
  };
  const opened = run => {
    put(run.tape);
    return game.open() !== 0;
  };
  const tapeOf = async run => {
    put(await unpacked(run.tape, run.bytes));
    const place = game.gather();
    return new Uint8Array(game.memory.buffer.slice(place, place + run.bytes));
  };

  const sealOf = async run => {
    if (!run.decodes) return { good: false, text: 'The row holds no tape in hexadecimal, so there is nothing that its seal could be of.' };
    if (!window.crypto || !crypto.subtle) {
      return { good: null, text: 'Seal: not looked at. This browser computes no SHA-256 for a page that was opened this way; ' +
                                 'from a file or over https it does.' };
    }
    const digest = new Uint8Array(await crypto.subtle.digest('SHA-256', run.tape));
    const seal = [...digest].map(byte => byte.toString(16).padStart(2, '0')).join('');
    return seal === run.seal
      ? { good: true, text: 'The seal is right: SHA-256 of the tape is ' + seal + '.' }
      : { good: false, text: 'The seal is wrong: SHA-256 of the tape is ' + seal + ', the row ' +
                             (run.seal ? 'says ' + run.seal : 'has none') + '.' };
  };

  const replayOf = run => {
    if (!run.decodes) return { plays: false, good: false, text: 'There is no tape to replay.' };
    if (!opened(run)) {
      return { plays: false, good: false, text: 'The tape cannot be replayed: it is ' + said(game.refusal()) + '.' };
    }
    const score = game.reached();
    if (game.endKind() === 1) {
      return { plays: true, good: false, text: 'The replay fails at tick ' + number(game.length() / 16) + ', with the score ' +
                                               number(score) + ': ' + said(game.endText()) + '.' };
    }
    if (game.endKind() === 2) {
      return { plays: true, good: null, text: 'The tape is full at the score ' + number(score) +
                                              '; how the run went on, nobody knows.' };
    }
    const reached = 'The replay of ' + number(game.events()) + ' events reaches the score ' + number(score) + ' in level ' +
                    game.levelReached() + ' and loses the last ball on the tape\u2019s last tick';
    return score === run.score
      ? { plays: true, good: true, text: reached + '. That is the recorded score.' }
      : { plays: true, good: false, text: reached + '. The row claims ' + number(run.score) + ': that score is wrong.' };
  };

  for (const run of data.runs) {
    run.tape = await tapeOf(run).catch(() => null);
    if (run.tape) {
      run.replay = replayOf(run);
      run.found = await sealOf(run);
    } else {
      run.replay = { plays: false, good: false, text: 'This page is damaged: its tape of this run cannot be unpacked.' };
      run.found = { good: false, text: 'So there is nothing that the seal could be of.' };
    }
    run.good = run.replay.good === false || run.found.good === false ? false
      : run.replay.good === null || run.found.good === null ? null : true;
  }
  const summary = run => run.good ? 'This run is what its row says.'
    : run.good === null ? 'Nothing wrong was found, but not all could be looked at.'
    : 'This run is not what its row says.';
  const mark = good => good ? 'good' : good === null ? 'unknown' : 'bad';

  // ---- The run that is on show.

  let shown = null;
  let dirty = true;
  let inputs = false;
  let lastMs = performance.now();
  const bar = at('bar');
  const still = matchMedia('(prefers-reduced-motion: reduce)');

  const finding = (good, text) => {
    const item = document.createElement('li');
    item.className = mark(good);
    item.textContent = text;
    return item;
  };

  // Of a player without one the initial, where others of the page have a face.
  const faceOf = (run, told) => {
    if (data.faces.length === 0) return [];
    const face = document.createElement(run.face === undefined ? 'span' : 'img');
    face.className = 'face';
    if (run.face === undefined) {
      face.textContent = ([...run.name][0] ?? '?').toUpperCase();
      face.setAttribute('aria-hidden', true);
    } else {
      face.src = 'data:image/jpeg;base64,' + data.faces[run.face];
      face.alt = told;
    }
    return [face];
  };

  const choose = index => {
    shown = data.runs[index];
    at('face').replaceChildren(...faceOf(shown, 'The picture of ' + shown.name));
    show(at('name'), shown.name);
    document.title = 'Brickfall: ' + shown.name + ', ' + number(shown.score);
    show(at('claim'), 'Recorded score ' + number(shown.score) + (shown.recorded === '-' ? '' : ', ' + shown.recorded));
    at('summary').className = mark(shown.good);
    show(at('summary'), summary(shown));
    at('findings').replaceChildren(finding(shown.replay.good, shown.replay.text), finding(shown.found.good, shown.found.text));
    show(at('verdict'), shown.verdict);
    show(at('txid'), shown.txid || 'not known');
    at('player').hidden = !shown.replay.plays;
    [...at('runs').children].forEach((item, i) => item.firstChild.setAttribute('aria-current', i === index));
    if (!shown.replay.plays) return;
    opened(shown);
    bar.max = game.length();
    at('marks').replaceChildren(...Array.from({ length: game.marks() }, (_, i) => {
      const tick = document.createElement('i');
      tick.className = game.markClears(i) ? 'cleared' : 'lost';
      tick.style.left = 100 * game.markAt(i) / Math.max(game.length(), 1) + '%';
      return tick;
    }));
    dirty = true;
  };

  const paint = nowMs => {
    const wide = well.clientWidth;
    if (wide < 1) return;
    // In logical pixels, as a window; a narrow screen shows it smaller.
    const w = Math.max(wide, 530);
    const h = game.heightFor(w);
    const scale = wide / w * (window.devicePixelRatio || 1);
    const [across, down] = [Math.round(w * scale), Math.round(h * scale)];
    if (well.width !== across || well.height !== down) {
      well.width = across;
      well.height = down;
      well.style.aspectRatio = w + ' / ' + h;
    }
    ink.setTransform(across / w, 0, 0, down / h, 0, 0);
    game.paint(w, h, scale, still.matches ? 0 : nowMs, inputs);
    const tick = game.now();
    bar.value = tick;
    const played = said(game.playedText(tick, true)) + ' of ' + said(game.playedText(game.length(), true));
    bar.setAttribute('aria-valuetext', played);
    show(at('time'), played);
    show(at('tick'), number(tick / 16));
    show(at('score'), number(game.score()));
    show(at('level'), String(game.level()));
    show(at('lives'), String(game.lives()));
    show(at('speed'), said(game.speed()) + '\u00d7');
    show(at('play'), game.playing() ? 'Pause' : 'Play');
    const spoken = said(game.spoken());
    if (well.getAttribute('aria-label') !== spoken) well.setAttribute('aria-label', spoken);
  };

  let blinkShown = -1;
  const frame = nowMs => {
    if (shown && shown.replay.plays) {
      const was = game.playing();
      const whole = Math.floor(Math.min(nowMs - lastMs, 250));
      if (whole > 0) {
        game.pass(whole);
        lastMs = nowMs - lastMs > 250 ? nowMs : lastMs + whole;
      }
      const blink = game.atEnd() && !still.matches ? Math.floor(nowMs / 110) : -1;
      if (was || dirty || blink !== blinkShown) paint(nowMs);
      if (was && !game.playing()) tell();
      dirty = false;
      blinkShown = blink;
    } else {
      lastMs = nowMs;
    }
    requestAnimationFrame(frame);
  };

  const tell = () => show(at('said'), said(game.spoken()));
  const acts = {
    play: () => game.playOrPause(),
    back: () => game.step(-1),
    forward: () => game.step(1),
    previousEvent: () => game.goToEvent(0),
    nextEvent: () => game.goToEvent(1),
    previousMark: () => game.goToMark(0),
    nextMark: () => game.goToMark(1),
    slower: () => game.slower(),
    faster: () => game.faster(),
    inputs: () => { inputs = !inputs; at('inputs').setAttribute('aria-pressed', inputs); },
  };
  const act = name => {
    if (!shown || !shown.replay.plays) return;
    acts[name]();
    dirty = true;
    if (!game.playing()) tell();
  };
  for (const name of Object.keys(acts)) at(name).addEventListener('click', () => act(name));
  well.addEventListener('click', () => act('play'));
  bar.addEventListener('input', () => { game.goTo(Number(bar.value)); dirty = true; });

  const keys = { ' ': 'play', ArrowLeft: 'back', ArrowRight: 'forward', PageUp: 'previousEvent', PageDown: 'nextEvent',
                 Home: 'previousMark', End: 'nextMark', ArrowUp: 'faster', ArrowDown: 'slower', i: 'inputs' };
  document.addEventListener('keydown', event => {
    const name = keys[event.key];
    if (!name || !shown || !shown.replay.plays || event.ctrlKey || event.altKey || event.metaKey) return;
    if (event.target === at('report')) return;  // it scrolls
    if (event.key === ' ' && event.target instanceof HTMLButtonElement) return;  // it presses the button
    event.preventDefault();
    act(name);
  });
  new ResizeObserver(() => { dirty = true; }).observe(well);

  if (data.runs.length > 1) {
    at('runs').replaceChildren(...data.runs.map((run, i) => {
      const item = document.createElement('li');
      const button = document.createElement('button');
      button.type = 'button';
      const text = document.createElement('span');
      text.textContent = number(run.score) + '  ' + run.name;
      const note = document.createElement('span');
      note.className = mark(run.good);
      note.textContent = run.good ? 'replays' : run.good === null ? 'not all looked at' : 'does not hold';
      const verdict = document.createElement('span');
      verdict.className = 'quiet';
      verdict.textContent = 'auditor: ' + run.verdict;
      button.append(...faceOf(run, ''), text, note, verdict);  // the name stands beside it
      button.addEventListener('click', () => { choose(i); at('name').scrollIntoView(); });
      item.append(button);
      return item;
    }));
    show(at('title'), data.title);
    at('list').hidden = false;
  }
  choose(0);
  done();
  requestAnimationFrame(frame);
})();
