// Fills the page with the data that it carries.

const data = JSON.parse(byId('data').textContent);

// --- What rows of the data say ---

const extent = (row, at) => ({last: row[at], least: row[at + 1], most: row[at + 2]});
const span = ([from, to, line]) => ({from, to, line});

// "12 s, line 345", or "12 s to 14 s, up to line 345".
function whenText({from, to, line}) {
  const time = from === to ? timeText(from) : `${timeText(from)} to ${timeText(to)}`;
  return line ? `${time}, ${from === to ? 'line' : 'up to line'} ${line}` : time;
}

// "backInTime" is "back in time".
const wordText = (word, isDeferred) =>
  data.words[word].replace(/[A-Z]/g, (letter) => ' ' + letter.toLowerCase()) +
  (isDeferred ? ' by the deferred deletion' : '');

function eventText([mac, [, , word, isDeferred, vlan, , vtep, former]]) {
  const from = former === null ? '' : ` from ${data.vtepNames[former]}`;
  const where = vtep === null ? '' : `${from ? ' to' : ' behind'} ${data.vtepNames[vtep]}`;
  return `${mac}${vlan === null ? '' : ` VLAN ${vlan}`} ${wordText(word, isDeferred)}${from}${where}`;
}

const amidst = ({last, least, most}, what) =>
  least === most ? `${last} ${what}` : `${last} ${what} (${least} to ${most})`;

const timeColumn = {title: 'time'};
const number = (title) => ({title, isNumber: true});

// --- Over time ---

const windows = {
  converging: data.windows.convergence.rows,
  deleting: [...data.windows.hostDeletion.rows, ...data.windows.floodDeletion.rows],
  held: data.windows.holds.rows,
};

function stateCharts() {
  const rows = data.state;
  const pictures = [['Hosts in the layer-2 RIB', 'hosts', 3], ['Marked hosts', 'marked', 6],
                    ['Flood destinations', 'flood destinations', 9]];
  const tell = (i) => {
    const events = rows[i][12];
    const last = rows[i][13];
    return `${whenText(span(rows[i]))}: ${pictures.map(([, what, at]) => amidst(extent(rows[i], at), what)).join(', ')}` +
      (events === 0 ? '' : events === 1 ? `; ${eventText(last)}` : `; ${events} events, last: ${eventText(last)}`);
  };
  const charts = pictures.map(([title, , at]) => {
    const points = rows.map((row) => ({...span(row), ...extent(row, at)}));
    return new Chart({title, points, tell, windows,
      columns: [timeColumn, number('line'), number('value'), number('least'), number('most')],
      rowOf: (i) => [timeText(points[i].to), points[i].line, points[i].last, points[i].least, points[i].most]});
  });
  for (const chart of charts) chart.followers = charts;
  return charts;
}

function batchChart() {
  const points = data.batches.map(([from, to, line, batches, hosts, floods, most, longest]) =>
    ({from, to, line, batches, hosts, floods, longest, last: most, least: most, most}));
  return new Chart({title: 'Deletions in a batch', points, windows, isBars: true,
    tell: (i) => {
      const {batches, hosts, floods, most, longest} = points[i];
      const many = batches === 1 ? '' : ` in ${batches} batches, at most ${most} in one`;
      return `${whenText(points[i])}: ${count(hosts, 'host')} and ${count(floods, 'flood destination')} ` +
        `deleted${many}, ${durationText(longest)}${many && ' at the longest'}`;
    },
    columns: [timeColumn, number('line'), number('batches'), number('hosts'), number('flood destinations'),
              number('most in one'), number('longest')],
    rowOf: (i) => {
      const {to, line, batches, hosts, floods, most, longest} = points[i];
      return [timeText(to), line, batches, hosts, floods, most, durationText(longest)];
    }});
}

// All of it, or a convergence with what comes before and after.
function ranges() {
  const end = data.to > data.from ? data.to : data.from + 1;
  const all = [[data.from, end]];
  for (const [from, to] of windows.converging) {
    const margin = Math.max(((to ?? end) - from) * 0.25, 0.001);
    all.push([Math.max(from - margin, data.from), Math.min((to ?? end) + margin, end)]);
  }
  return all;
}

function overTime() {
  const charts = [...stateCharts(), batchChart()];
  byId('charts').append(...charts.map((chart) => chart.figure));
  const choices = ranges();
  const select = byId('range');
  choices.forEach(([from, to], i) => select.append(
    el('option', {value: i}, i === 0 ? 'all' : `convergence ${i}, ${timeText(from)} to ${timeText(to)}`)));
  const choose = () => charts.forEach((chart) => chart.rangeIs(choices[Number(select.value)]));
  select.addEventListener('change', choose);
  choose();
  const swatch = (kind, y, height) => svg('svg', {viewBox: '0 0 24 16', 'aria-hidden': 'true'},
    svg('rect', {class: kind, x: 0, y, width: 24, height}));
  byId('legend').append(
    el('li', {}, swatch('converging', 0, 16), 'full height: the controller converges'),
    el('li', {}, swatch('deleting', 11, 5), 'at the bottom: deletion that was put off is under way'),
    ...(data.epoch === null ? [] : [el('li', {}, swatch('held', 0, 5), 'at the top: a hold')]));
}

// --- Parts of the whole: a small picture each, and one that is chosen ---

function breakdown(id, what, parts) {
  const most = 24;
  const section = byId(id);
  const total = parts.total + (parts.isMore ? ' or more' : '');
  section.append(el('p', {class: 'hint'}, parts.total > parts.shown.length
    ? `Pictures of the ${Math.min(most, parts.shown.length)} of ${total} ${what}s that changed most; the list has ${parts.shown.length}.`
    : parts.total > most ? `Pictures of the ${most} of ${total} that changed most; the list has all.`
      : count(parts.total, what) + '.'));
  if (parts.shown.length === 0) return;
  const range = ranges()[0];
  const series = parts.shown.map(({name, changes, rows}) => ({title: name, changes,
    points: rows.map((row) => ({...span(row), ...extent(row, 3)}))}));
  const select = el('select', {'aria-label': `Which ${what} to show`});
  series.forEach(({title}, i) => select.append(el('option', {value: i}, title)));
  const place = el('div');
  const choose = (i) => {
    const {title, points} = series[i];
    select.value = i;
    const chart = new Chart({title, points, windows,
      tell: (j) => `${whenText(points[j])}: ${amidst(points[j], 'hosts')}`,
      columns: [timeColumn, number('line'), number('hosts'), number('least'), number('most')],
      rowOf: (j) => [timeText(points[j].to), points[j].line, points[j].last, points[j].least, points[j].most]});
    place.replaceChildren(chart.figure);
    chart.rangeIs(range);
  };
  select.addEventListener('change', () => choose(Number(select.value)));
  const small = series.slice(0, most).map(({title, points}, i) =>
    smallChart(title, points, range, windows, () => {
      choose(i);
      select.focus();
    }));
  section.append(el('div', {class: 'grid'}, ...small),
    foldedTable(`hosts of each ${what}`, [{title: what}, number('in the end'), number('at most'), number('changes')],
      () => series.map(({title, points, changes}) =>
        [title, points.at(-1).last, Math.max(...points.map((point) => point.most)), changes])),
    el('p', {}, el('label', {}, `Large: `, select)), place);
  choose(0);
}

// --- Tables ---

function slowestBatches() {
  const {rows, total} = data.slowest;
  byId('batches').append(total === 0 ? el('p', {}, 'None.') : table(
    `the slowest ${rows.length} of ${count(total, 'batch', 'batches')}`,
    [timeColumn, number('line'), {title: 'of'}, number('duration'), number('deleted'), {title: 'the last of its run'}],
    rows.map(([at, line, kind, duration, deleted, isLast]) =>
      [timeText(at), line, kind, durationText(duration), deleted, isLast ? 'yes' : 'no'])));
}

function moves() {
  const {rows, total} = data.moves;
  const opener = (mac) => {
    const button = el('button', {class: 'link', type: 'button'}, mac);
    button.addEventListener('click', () => {
      byId('mac').value = mac;
      lookUp();
      byId('story').scrollIntoView({block: 'nearest'});
      byId('mac').focus();
    });
    return button;
  };
  byId('moves').append(total === 0 ? el('p', {}, 'None.') : table(
    total > rows.length ? `the last ${rows.length} of ${total} moves` : count(total, 'move'),
    [{title: 'MAC'}, number('VLAN'), {title: 'from'}, {title: 'to'}, timeColumn, number('line')],
    rows.map(([mac, [at, line, , , vlan, , vtep, former]]) =>
      [opener(mac), vlan, data.vtepNames[former], data.vtepNames[vtep], timeText(at), line])));
}

// --- Stories ---

function storyOf(mac) {
  const {left, isWhole, events} = data.stories[mac];
  const rows = events.map(([at, line, word, isDeferred, vlan, vni, vtep, former]) =>
    [timeText(at), line, wordText(word, isDeferred), vlan, vni,
     vtep === null ? '' : data.vtepNames[vtep], former === null ? '' : data.vtepNames[former]]);
  const parts = [table(`${count(events.length, 'event')} of ${mac}`,
    [timeColumn, number('line'), {title: 'event'}, number('VLAN'), number('VNI'), {title: 'VTEP'}, {title: 'from VTEP'}], rows)];
  if (left > 0) parts.push(el('p', {}, `${count(left, 'earlier event')} ${left === 1 ? 'is' : 'are'} left out. `));
  if (!isWhole) parts.push(el('p', {}, 'It may have begun before: its beginning is not kept here. '));
  if (left > 0 || !isWhole) parts.push(elsewhere(mac));
  return parts;
}

const elsewhere = (mac) => el('p', {}, 'All of it is told by ', el('code', {}, `vxlan-agent explain ${mac} ${data.source}`));

const isMac = (text) => /^[0-9a-f]{2}(:[0-9a-f]{2}){5}$/.test(text);

// Colons, dashes and dots are all the same.
function normalized(text) {
  const digits = text.toLowerCase().replace(/[^0-9a-f]/g, '');
  return digits.length === 12 ? digits.match(/../g).join(':') : text.trim().toLowerCase().replace(/-/g, ':');
}

function lookUp() {
  const wanted = normalized(byId('mac').value);
  const place = byId('story');
  if (Object.hasOwn(data.stories, wanted)) return place.replaceChildren(...storyOf(wanted));
  if (wanted === '') return place.replaceChildren();
  const mostFound = 20;
  const found = Object.keys(data.stories).filter((mac) => mac.includes(wanted));
  if (found.length === 0)
    return place.replaceChildren(el('p', {}, `No story of ${wanted} is kept here.`),
      ...(isMac(wanted) ? [elsewhere(wanted)] : []));
  place.replaceChildren(el('p', {}, found.length > mostFound ? `The first ${mostFound} of ${found.length}:` : `${found.length} found:`),
    el('ul', {}, ...found.slice(0, mostFound).map((mac) => {
      const button = el('button', {class: 'link', type: 'button'}, mac);
      button.addEventListener('click', () => {
        byId('mac').value = mac;
        lookUp();
        byId('mac').focus();
      });
      return el('li', {}, button);
    })));
}

function stories() {
  const kept = Object.keys(data.stories).length;
  byId('kept').textContent = data.areAllStories ? `The stories of all ${count(kept, 'MAC')}.`
    : `The stories of ${count(kept, 'MAC')}, not of all: first those that moved, were withdrawn, marked or deleted.`;
  byId('search').addEventListener('submit', (event) => {
    event.preventDefault();
    lookUp();
  });
}

// --- The head ---

function head() {
  document.title = `Convergence report: ${data.title}`;
  byId('title').textContent = data.title;
  byId('version').textContent = data.version;
  byId('about').textContent = `${timeText(data.from)} to ${timeText(data.to)}` +
    (data.lines ? `, ${count(data.lines, 'line')}` : '');
  const last = data.state.at(-1);
  const mostHosts = Math.max(0, ...data.state.map((row) => row[5]));
  const longest = data.slowest.rows[0]?.[3];
  const numbers = [['hosts in the end', last ? last[3] : 0], ['hosts at most', mostHosts],
    ['marked at most', Math.max(0, ...data.state.map((row) => row[8]))],
    ['moves', data.moves.total], ['convergences', windows.converging.length + data.windows.convergence.left],
    ['batches', data.slowest.total], ['longest batch', longest === undefined ? '-' : durationText(longest)]];
  byId('numbers').append(...numbers.map(([name, value]) =>
    el('div', {}, el('dt', {}, name), el('dd', {}, String(value)))));
}

head();
overTime();
breakdown('vnis', 'VNI', data.vnis);
breakdown('vteps', 'VTEP', data.vteps);
slowestBatches();
moves();
stories();
