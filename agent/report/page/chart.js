// Pictures over time. A point is {from, to, last, least, most}: what was first and last in it, the
// value after it, and the least and most meanwhile. Where a point is a single moment, these agree.

// The step of 1, 2 or 5 times a power of ten that makes at most `most` of the width.
function niceStep(width, most) {
  const rough = width / most || 1;
  const power = 10 ** Math.floor(Math.log10(rough));
  return power * [1, 2, 5, 10].find((each) => power * each >= rough * 0.999);
}

// The index of the last item that begins at or before `at`; 0 if none does.
function indexAt(points, at) {
  let low = 0;
  let high = points.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (points[middle].from <= at) low = middle + 1;
    else high = middle;
  }
  return Math.max(low - 1, 0);
}

// Where the picture stands in its drawing, and what its axes reach.
class Scale {
  constructor(size, margin, range, top) {
    Object.assign(this, {...size, margin, range, top});
    this.right = size.width - margin.right;
    this.bottom = size.height - margin.bottom;
  }
  x(at) {
    const [from, to] = this.range;
    return this.margin.left + (at - from) / (to - from) * (this.right - this.margin.left);
  }
  y(value) {
    return this.bottom - value / this.top * (this.bottom - this.margin.top);
  }
  at(x) {
    const [from, to] = this.range;
    return from + (x - this.margin.left) / (this.right - this.margin.left) * (to - from);
  }
}

const round = (number) => Math.round(number * 100) / 100;

// The value's steps, from where it stood when the range began to the range's end.
function linePath(points, scale) {
  const [begin, end] = scale.range;
  const first = indexAt(points, begin);
  let path = '';
  for (let i = first; i < points.length && points[i].from <= end; ++i) {
    const {from, to, last} = points[i];
    const x = round(Math.max(scale.x(from), scale.margin.left));
    const y = round(scale.y(last));
    if (path === '') path = from <= begin ? `M${x} ${y}` : `M${x} ${round(scale.y(0))}V${y}`;
    else path += from === to ? `H${x}V${y}` : `H${x}L${round(Math.min(scale.x(to), scale.right))} ${y}`;
  }
  return path && path + `H${round(scale.right)}`;
}

// What lies between least and most, where a point is more than a moment.
function bandPath(points, scale) {
  const [begin, end] = scale.range;
  let path = '';
  for (const {from, to, least, most} of points) {
    if (least === most || to < begin || from > end) continue;
    const left = round(Math.max(scale.x(from), scale.margin.left));
    const right = Math.max(round(Math.min(scale.x(to), scale.right)), left + 1);
    path += `M${left} ${round(scale.y(least))}V${round(scale.y(most))}H${right}V${round(scale.y(least))}Z`;
  }
  return path;
}

function barPath(points, scale) {
  const [begin, end] = scale.range;
  return points.filter(({from}) => begin <= from && from <= end)
    .map(({from, last}) => `M${round(scale.x(from))} ${round(scale.bottom)}V${round(scale.y(last))}`)
    .join('');
}

// Convergences fill the height, holds are at the top, deferred deletions at the bottom: they are
// told apart without their colours.
function shades(windows, scale) {
  const heights = {
    converging: [scale.margin.top, scale.bottom],
    held: [scale.margin.top - 6, scale.margin.top - 1],
    deleting: [scale.bottom - 5, scale.bottom],
  };
  const shapes = [];
  for (const [kind, [top, bottom]] of Object.entries(heights))
    for (const [from, to] of windows[kind]) {
      const left = Math.max(scale.x(from), scale.margin.left);
      const right = Math.min(scale.x(to ?? scale.range[1]), scale.right);
      if (right < left) continue;
      shapes.push(svg('rect', {class: kind, x: round(left), y: top, height: bottom - top,
                               width: round(Math.max(right - left, 1))}));
    }
  return shapes;
}

function axes(scale) {
  const shapes = [];
  const put = (x, y, anchor, text) => shapes.push(svg('text', {x, y, 'text-anchor': anchor}, text));
  for (let value = 0, step = Math.max(niceStep(scale.top, 4), 1); value <= scale.top; value += step) {
    const y = round(scale.y(value));
    shapes.push(svg('line', {class: 'axis', x1: scale.margin.left, x2: scale.right, y1: y, y2: y}));
    put(scale.margin.left - 6, y + 4, 'end', String(value));
  }
  const [from, to] = scale.range;
  const step = niceStep(to - from, Math.max(Math.floor(scale.width / 130), 2));
  for (let at = Math.ceil(from / step) * step; at <= to; at += step)
    put(round(scale.x(at)), scale.bottom + 16, 'middle', tickText(at, step));
  return shapes;
}

// The domain is for whoever reads the path back into numbers.
function draw(picture, scale, points, windows, isBars) {
  picture.setAttribute('viewBox', `0 0 ${scale.width} ${scale.height}`);
  picture.setAttribute('height', scale.height);
  picture.dataset.domain = JSON.stringify({range: scale.range, top: scale.top,
    left: scale.margin.left, right: scale.right, bottom: scale.bottom, above: scale.margin.top});
  const shapes = isBars ? [svg('path', {class: 'bar', d: barPath(points, scale)})]
    : [svg('path', {class: 'band', d: bandPath(points, scale)}),
       svg('path', {class: 'line', d: linePath(points, scale)})];
  picture.replaceChildren(...shades(windows, scale), ...axes(scale), ...shapes);
}

// A picture with a slider that walks its points, the words for the point, and a table behind it.
// `options`: title, points, tell(i), columns and rowOf(i) of the table, isBars, windows.
class Chart {
  constructor(options) {
    Object.assign(this, options);
    const {title, points} = options;
    const most = Math.max(0, ...points.map((point) => point.most));
    this.top = Math.max(niceStep(most, 4) * Math.ceil(most / niceStep(most, 4)), 4);
    this.picture = svg('svg', {class: 'plot', role: 'img', 'aria-label': this.summary(most)});
    this.here = svg('line', {class: 'here'});
    this.slider = el('input', {type: 'range', step: 1, 'aria-label': `A moment of: ${title}`});
    this.readout = el('p', {class: 'readout'});
    this.figure = el('figure', {}, el('figcaption', {}, el('h3', {}, title)), this.picture, this.slider,
      this.readout, foldedTable(title, this.columns, () => points.map((_, i) => this.rowOf(i))));
    this.slider.disabled = points.length === 0;
    this.slider.addEventListener('input', () => this.choose(Number(this.slider.value)));
    for (const kind of ['pointermove', 'pointerdown'])
      this.picture.addEventListener(kind, (event) => this.point(event));
    this.followers = [this];
    new ResizeObserver(() => this.redraw()).observe(this.figure);
  }

  summary(most) {
    if (this.points.length === 0) return `${this.title}: nothing to show`;
    const {last} = this.points.at(-1);
    const reach = this.isBars ? `at most ${most}` : `at most ${most}, ${last} in the end`;
    return `${this.title}: ${count(this.points.length, 'point')}, ${reach}`;
  }

  rangeIs(range) {
    this.range = range;
    const last = Math.max(this.points.length - 1, 0);
    const first = Math.min(indexAt(this.points, range[0]), last);
    this.slider.min = first;
    this.slider.max = Math.max(indexAt(this.points, range[1]), first);
    this.redraw();
    this.show(Number(this.slider.max));
  }

  redraw() {
    const width = this.figure.clientWidth;
    if (width === 0 || !this.range) return;
    const margin = {left: 52, right: 14, top: 10, bottom: 24};
    this.scale = new Scale({width, height: 170}, margin, this.range, this.top);
    draw(this.picture, this.scale, this.points, this.windows, this.isBars);
    this.picture.append(this.here);
    this.show(Number(this.slider.value));
  }

  point(event) {
    if (this.points.length === 0) return;
    const box = this.picture.getBoundingClientRect();
    const index = indexAt(this.points, this.scale.at((event.clientX - box.left) * this.scale.width / box.width));
    this.choose(Math.min(Math.max(index, Number(this.slider.min)), Number(this.slider.max)));
  }

  choose(index) {
    for (const chart of this.followers) chart.show(index);
  }

  show(index) {
    const point = this.points[index];
    if (!point) return;
    const text = this.tell(index);
    this.slider.value = index;
    this.slider.setAttribute('aria-valuetext', text);
    this.readout.textContent = text;
    if (!this.scale) return;
    const x = round(Math.min(Math.max(this.scale.x(point.to), this.scale.margin.left), this.scale.right));
    append(this.here, {x1: x, x2: x, y1: this.scale.margin.top, y2: this.scale.bottom}, []);
  }
}

// A small picture that a button opens.
function smallChart(title, points, range, windows, open) {
  const most = Math.max(0, ...points.map((point) => point.most));
  const last = points.at(-1)?.last ?? 0;
  const picture = svg('svg', {class: 'plot', role: 'img',
    'aria-label': `${title}: at most ${count(most, 'host')}, ${last} in the end`});
  const scale = new Scale({width: 180, height: 48}, {left: 1, right: 1, top: 7, bottom: 1}, range, Math.max(most, 1));
  draw(picture, scale, points, windows, false);
  for (const mark of picture.querySelectorAll('text, .axis')) mark.remove();
  const button = el('button', {class: 'link', type: 'button'}, title);
  button.addEventListener('click', open);
  return el('figure', {}, el('figcaption', {}, button, ` ${count(last, 'host')}, at most ${most}`), picture);
}
