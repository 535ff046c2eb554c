// The page. It reads /api/v1/ and shows it; what stands in a log is always text, never markup.
"use strict";

const $ = (id) => document.getElementById(id);
const EVENTS_AT_FIRST = 50;
const ALERTS_AT_ONCE = 50;
const ANSWER_WITHIN_MS = 20000;
const REOPEN_MS = 5000;
const LOOK_MS = 30000; // a monitor that stands still sends no news
// Of the lines of the plot: half a hit is nothing.
const BINARY_STEPS = Array.from({ length: 50 }, (_, i) => 2 ** i);
const WHOLE_STEPS = Array.from({ length: 15 }, (_, i) => [1, 2, 5].map((digit) => digit * 10 ** i)).flat();
const LIGHT = ["#0072b2", "#c2410c", "#15803d", "#7e22ce", "#a16207", "#be185d", "#0e7490", "#4d5b6a", "#b91c1c", "#3f6212"];
const DARK = ["#56b4e9", "#ff9d5c", "#6ee7a0", "#c99bff", "#f0d264", "#ff8ac4", "#5fd9e8", "#aab7c4", "#ff8f85", "#b6dd74"];

// ---- small things ----

// Children are elements, or texts.
function element(name, properties, ...children) {
  const made = Object.assign(document.createElement(name), properties);
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

function number(value) {
  return value === null || value === undefined ? "–" : value.toLocaleString("en-GB");
}

function bytes(value) {
  if (value === null || value === undefined) return "–";
  for (const unit of ["B", "KiB", "MiB", "GiB"]) {
    if (value < 1024 || unit === "GiB") return `${value < 10 && unit !== "B" ? value.toFixed(1) : Math.round(value)} ${unit}`;
    value /= 1024;
  }
  return "";
}

function duration(seconds) {
  if (seconds === null || seconds === undefined) return "–";
  if (seconds < 120) return `${Math.max(0, Math.round(seconds))} s`;
  if (seconds < 7200) return `${Math.round(seconds / 60)} min`;
  if (seconds < 172800) return `${Math.round(seconds / 3600)} h`;
  return `${Math.round(seconds / 86400)} days`;
}

// Of a kind of series.
const isBytes = (kind) => kind.endsWith("bytes");
const inUnit = (kind, value) => (isBytes(kind) ? bytes(value) : number(value));

function nameOf(series) {
  if (series.name === "") return "all others";
  return series.event_id === undefined ? series.name : `${series.name} ${series.event_id}`;
}

// Of a query that failed it is an object; who is refused gets a line of text.
function reason(text) {
  try {
    return JSON.parse(text).error;
  } catch {
    return text.trim();
  }
}

// A daemon that is held up, or a tunnel that has gone, answers never.
async function get(path) {
  const answer = await fetch(path, { credentials: "same-origin", signal: AbortSignal.timeout(ANSWER_WITHIN_MS) });
  if (answer.ok) return answer.json();
  throw new Error(reason(await answer.text()) || `the daemon answered with ${answer.status}`);
}

// Sets a text only when it is another one: what is read aloud is not read again.
function show(id, text, className) {
  const place = $(id);
  if (place.textContent !== text) place.textContent = text;
  if (className !== undefined) place.className = className;
}

// Who stands on a control that goes is led on, or the keyboard would begin anew at the top of the page.
function hide(id, isHidden, next) {
  const hadFocus = document.activeElement === $(id);
  $(id).hidden = isHidden;
  if (isHidden && hadFocus) next()?.focus({ preventScroll: true });
}

// The page as it stands has been shown; of one that nobody looks at, once somebody does.
const firstFrame = new Promise((resolve) => { requestAnimationFrame(() => setTimeout(resolve)); });

// ---- overview, files, sinks ----

let overview = null;
let cameAt = 0; // when the overview came, by the clock of performance.now()
let isReached = true; // the daemon

// What the daemon said, and the time since then: the clocks of both may differ.
function lookSeconds() {
  const seconds = overview.daemon.seconds_since_look;
  return typeof seconds === "number" ? seconds + (performance.now() - cameAt) / 1000 : null;
}

function facts() {
  const unread = overview.logs.reduce((sum, log) => sum + (log.unread_bytes || 0), 0);
  const waiting = overview.sinks.reduce((sum, sink) => sum + sink.waiting, 0);
  return [["Last look at all files", lookSeconds() === null ? "none yet" : `${duration(lookSeconds())} ago`],
    ["Looks at least every", duration(overview.cycle_seconds)],
    ["Unread in logs", bytes(unread)],
    ["Events", number(overview.events)],
    ["Alerts kept", number(overview.alerts)],
    ["Alerts waiting for sinks", number(waiting)],
    ["Store", bytes(overview.store_bytes)],
    ["Version", overview.version]];
}

function showFacts() {
  const list = $("facts");
  const wanted = facts();
  if (list.children.length !== wanted.length)
    list.replaceChildren(...wanted.map(([name]) => element("div", {}, element("dt", {}, name), element("dd"))));
  wanted.forEach(([, value], i) => {
    const place = list.children[i].lastChild;
    if (place.textContent !== value) place.textContent = value;
  });
}

function showState() {
  const daemon = overview.daemon;
  if (!isReached) show("state", "not connected", "badge bad");
  else if (daemon.stands) show("state", `not working: ${daemon.stands}`, "badge bad");
  else if (daemon.is_late) show("state", "late", "badge bad");
  else show("state", daemon.state || "starting", daemon.state === "running" ? "badge good" : "badge bad");
  const problems = [daemon.watch_problem && `Watching: ${daemon.watch_problem}; changes are found once in a cycle.`,
    daemon.inputs_wait && `The inputs wait: ${daemon.inputs_wait}.`,
    daemon.restarts > 0 && daemon.last_error && `The monitor ended by itself ${daemon.restarts} times, the last time: ${daemon.last_error}`];
  const text = [failure, ...problems].filter(Boolean).join(" ");
  $("problem").hidden = text === "";
  show("problem", text);
}

// A row that is there is used again, and a cell is touched only when it says something else: most of a table stays as
// it is from one pass to the next. Of a long one, so many rows at a time, so that the page answers in between.
const ROWS_AT_ONCE = 200;
const fillings = new Map(); // the newest filling of each table

// A cell is a text, or an object with a number, or with what a button says, what that does, and of what it is.
function newCell(cell) {
  if (cell.button !== undefined) return element("td", {}, element("button", { type: "button", title: cell.title }));
  return element("td", { className: cell.number !== undefined ? "number" : "" });
}

function fillRow(row, cells) {
  cells.forEach((cell, i) => {
    const made = row.cells[i] || row.appendChild(newCell(cell));
    const place = cell.button !== undefined ? made.firstChild : made;
    const text = cell.button ?? cell.number ?? cell;
    if (place.textContent !== text) place.textContent = text;
    if (cell.button !== undefined) place.of = cell.of;
  });
}

function fillRows(body, rows, from, isNewest) {
  const end = Math.min(from + ROWS_AT_ONCE, rows.length);
  for (let i = from; i < end; ++i) fillRow(body.rows[i] || body.appendChild(element("tr")), rows[i]);
  if (end < rows.length) requestAnimationFrame(() => { if (isNewest()) fillRows(body, rows, end, isNewest); });
}

function fill(table, rows, empty) {
  const body = $(table).tBodies[0];
  const columns = $(table).tHead.rows[0].cells.length;
  const filling = {};
  fillings.set(table, filling);
  if (rows.length === 0) {
    body.replaceChildren(element("tr", { className: "empty" }, element("td", { colSpan: columns, className: "quiet" }, empty)));
    return;
  }
  body.querySelector(".empty")?.remove();
  while (body.rows.length > rows.length) body.lastChild.remove();
  fillRows(body, rows, 0, () => fillings.get(table) === filling);
}

function showFiles() {
  const logs = overview.logs.map((log) => [log.path, log.role, { number: bytes(log.unread_bytes) },
    { number: duration(log.behind_seconds) }, ""]);
  const inputs = overview.inputs.map((input) => [input.name, `input, ${input.kind}`, { number: bytes(input.unread_bytes) },
    { number: duration(input.behind_seconds) }, input.problems.join("; ")]);
  fill("file-table", [...logs, ...inputs], "No file is watched.");
}

function showSinks() {
  fill("sink-table", overview.sinks.map((sink) => [sink.name, sink.kind, { number: number(sink.delivered) },
    { number: number(sink.waiting) }, { number: number(sink.undelivered) }, { number: number(sink.dropped) },
    sink.last_error || ""]), "There is no sink: alerts are kept in the store.");
}

const SILENCE_STATES = { holds: "holds back", "no zone": "never holds: this host does not know its time zone" };

function showSilences() {
  fill("silence-table", overview.silences.map((silence) => [{ number: number(silence.number) },
    `${silence.source} ${silence.event_id || "*"}, host ${silence.host}${silence.labels ? `, ${silence.labels}` : ""}`,
    `${silence.window || "always"}${silence.end_ms ? ` until ${new Date(silence.end_ms).toLocaleString("en-GB")}` : ""}`,
    SILENCE_STATES[silence.state] || silence.state, [silence.comment, silence.author].filter(Boolean).join(", by ")]),
  "No alert is held back by a silence.");
}

function setReached(is) {
  isReached = is;
  if (overview) showState();
  else if (!is) show("state", "not connected", "badge bad");
}

async function loadOverview() {
  overview = await get("api/v1/overview").catch((error) => {
    setReached(false);
    throw error;
  });
  cameAt = performance.now();
  isReached = true;
  show("host", overview.host);
  document.title = `${overview.host}: syslog monitor`;
  showState();
  showFacts();
  showFiles();
  showSinks();
  showSilences();
}

// ---- the plot ----

let plot = null;
let hidden = new Set();
let plotted = null; // what the plot was made for
let course = null;

// Fetching and compiling it takes longer than all else before the page shows something, so it comes behind the first frame.
// Before the sheet of the page, which has the last word.
function come(name, properties, file) {
  return new Promise((resolve, reject) => {
    document.head.prepend(element(name, {
      ...properties, onload: resolve, onerror: () => reject(new Error(`${file} did not come`)) }));
  });
}
let coming = null;
function plotLibrary() {
  coming ??= firstFrame.then(() => Promise.all([
    come("link", { rel: "stylesheet", href: "uPlot.css" }, "uPlot.css"),
    come("script", { src: "uPlot.js" }, "uPlot.js"),
  ])).catch((error) => {
    coming = null; // the next look asks again
    throw error;
  });
  return coming;
}

function isDark() {
  const chosen = document.documentElement.dataset.theme;
  return chosen ? chosen === "dark" : matchMedia("(prefers-color-scheme: dark)").matches;
}

function colour(i) {
  const colours = isDark() ? DARK : LIGHT;
  return colours[i % colours.length];
}

function swatch(i) {
  const space = "http://www.w3.org/2000/svg";
  const svg = document.createElementNS(space, "svg");
  svg.setAttribute("viewBox", "0 0 10 10");
  svg.setAttribute("aria-hidden", "true");
  const square = document.createElementNS(space, "rect");
  for (const [name, value] of [["width", 10], ["height", 10], ["rx", 2], ["fill", colour(i)]]) square.setAttribute(name, value);
  svg.append(square);
  return svg;
}

let legend = null; // what it was made for

function showAll() {
  hidden = new Set();
  legend = null;
  plotted = null; // it knows what is hidden, too
}

function legendItem(one, i) {
  const name = nameOf(one);
  const button = element("button", { type: "button" }, swatch(i), "");
  button.setAttribute("aria-pressed", String(!hidden.has(name)));
  button.addEventListener("click", () => {
    if (!hidden.delete(name)) hidden.add(name);
    button.setAttribute("aria-pressed", String(!hidden.has(name)));
    plot.setSeries(i + 1, { show: !hidden.has(name) });
    showMoment();
  });
  return element("li", {}, button);
}

// A button stays while there is news, or the keyboard would lose it.
function showLegend(series) {
  const shape = JSON.stringify([series.map(nameOf), isDark()]);
  if (legend !== shape) $("legend").replaceChildren(...series.map(legendItem));
  legend = shape;
  series.forEach((one, i) => {
    const text = $("legend").children[i].firstChild.lastChild;
    const words = `${nameOf(one)}: ${inUnit(course.kind, one.sum)}`;
    if (text.data !== words) text.data = words;
  });
}

// ---- the moment of the plot: under the pointer, or where the slider stands ----

let moment = null; // seconds since 1970, where the slider was put; null: at the newest
let pointed = null; // number of the point under the pointer

function timeInWords(time) {
  const form = course.step_seconds >= 86400 ? { day: "numeric", month: "short", year: "numeric" }
    : { day: "numeric", month: "short", hour: "2-digit", minute: "2-digit" };
  return new Intl.DateTimeFormat("en-GB", form).format(new Date(time * 1000));
}

function pointOfMoment() {
  const newest = course.steps - 1;
  return moment === null ? newest : Math.min(Math.max(Math.round((moment - course.from) / course.step_seconds), 0), newest);
}

// Of so many events, the smallest of a step are kept together only: the one that is asked for may be among them.
const isPartlyKept = (history) => chosen !== null && history.not_kept_apart > 0;

// Those of which there is something; a hidden series is told of by nobody.
function valuesInWords(point) {
  const values = course.series.filter((one) => !hidden.has(nameOf(one)) && one.values[point])
    .map((one) => `${nameOf(one)} ${inUnit(course.kind, one.values[point])}`);
  return `${timeInWords(course.from + point * course.step_seconds)}: ${values.join(", ") || (isPartlyKept(course) ? "nothing that is known" : "nothing")}`;
}

function showMoment() {
  const point = pointed ?? pointOfMoment();
  const words = valuesInWords(point);
  const slider = $("moment");
  slider.max = course.steps - 1;
  slider.value = point;
  slider.setAttribute("aria-valuetext", words);
  slider.disabled = course.series.length === 0;
  show("values", course.series.length === 0 ? "" : words);
}

// The line of the plot, unless the pointer has it.
function markMoment() {
  if (plot.over.matches(":hover")) return;
  plot.setCursor(moment === null ? { left: -10, top: -10 }
    : { left: plot.valToPos(course.from + pointOfMoment() * course.step_seconds, "x"), top: 0 });
}

function chooseMoment(point) {
  moment = point >= course.steps - 1 ? null : course.from + point * course.step_seconds;
  markMoment();
  pointed = null;
  showMoment();
}

function axis() {
  const style = getComputedStyle(document.documentElement);
  return { stroke: style.getPropertyValue("--quiet").trim(), grid: { stroke: style.getPropertyValue("--line").trim(), width: 1 },
    ticks: { stroke: style.getPropertyValue("--line").trim(), width: 1 } };
}

// 24 hours, in the zone of this browser.
function timeTexts(step) {
  const form = new Intl.DateTimeFormat("en-GB", step >= 86400 ? { day: "numeric", month: "short" }
    : step >= 3600 ? { day: "numeric", month: "short", hour: "2-digit", minute: "2-digit" }
      : { hour: "2-digit", minute: "2-digit" });
  return (_, times) => times.map((time) => form.format(new Date(time * 1000)));
}

function drawPlot(history) {
  const place = $("plot");
  const times = Array.from({ length: history.steps }, (_, i) => history.from + i * history.step_seconds);
  const data = [times, ...history.series.map((one) => one.values)];
  const unit = isBytes(history.kind);
  const shape = JSON.stringify([history.series.map(nameOf), history.step_seconds, unit, isDark(), place.clientWidth]);
  if (plot && plotted === shape) {
    plot.setData(data);
    queueMicrotask(markMoment); // the plot takes its new scale in such a one
    return;
  }
  if (plot) plot.destroy();
  plotted = shape;
  plot = new uPlot({
    width: place.clientWidth, height: 270, cursor: { y: false, drag: { setScale: false, x: false } }, legend: { show: false },
    hooks: { setCursor: [(self) => {
      pointed = self.cursor.idx ?? null;
      showMoment();
    }] },
    scales: { y: { range: (_, least, most) => [0, Math.max(1, most * 1.05)] } },
    axes: [{ ...axis(), values: timeTexts(history.step_seconds), space: history.step_seconds >= 3600 ? 110 : 60 }, { ...axis(), size: 60,
      ...(unit ? { incrs: BINARY_STEPS, values: (_, values) => values.map(bytes) } : { incrs: WHOLE_STEPS }) }],
    series: [{}, ...history.series.map((one, i) => ({ label: nameOf(one), stroke: colour(i), width: 1.5,
      points: { show: false }, show: !hidden.has(nameOf(one)) }))],
  }, data, place);
  plot.over.addEventListener("mouseleave", () => queueMicrotask(markMoment)); // the slider's again
  queueMicrotask(markMoment);
}

function redraw() {
  if (!course) return;
  drawPlot(course);
  showLegend(course.series);
}

// ---- one event, chosen in the table ----

let chosen = null; // its source and ID; null: all
const OF_EVENTS = ["hits", "alerts", "held_back"];

function chooseEvent(event) {
  chosen = event;
  if (event && !OF_EVENTS.includes($("kind").value)) $("kind").value = "hits";
  const hadFocus = $("chosen").contains(document.activeElement);
  $("chosen").hidden = !event;
  if (!event && hadFocus) $("kind").focus({ preventScroll: true });
  show("chosen-name", event ? `only ${event.source} ${event.event_id}` : "");
  showAll();
  loadCourse().catch(failed);
}

// Leads to the plot, also for who does not see it.
function plotEvent(event) {
  chooseEvent(event);
  $("course").scrollIntoView();
  $("moment").focus({ preventScroll: true });
}

function courseQuery() {
  const query = new URLSearchParams({ kind: $("kind").value, seconds: $("range").value, top: 10 });
  if (chosen) {
    query.set("source", chosen.source);
    query.set("event_id", chosen.event_id);
  }
  return `api/v1/history?${query}`;
}

let askedCourse = 0; // how often the course was asked for

// What was asked for last is shown, also when its answer comes first.
async function loadCourse() {
  const asked = ++askedCourse;
  const kind = $("kind").value;
  const [history] = await Promise.all([get(courseQuery()), plotLibrary()]);
  if (asked !== askedCourse) return;
  course = { ...history, kind };
  drawPlot(course);
  showLegend(history.series);
  showMoment();
  const step = { 60: "a minute", 3600: "an hour", 86400: "a day" }[history.step_seconds];
  const steps = history.series.length > 0 ? `each point is ${step}` : isPartlyKept(history) ? "nothing is known of it" : "nothing was counted";
  show("step", steps + (isPartlyKept(history) ? `; ${number(history.not_kept_apart)} of the smallest events are kept together only`
    + ", and its own may be among them" : ""));
  const words = history.series.map((one) => `${nameOf(one)} ${inUnit(kind, one.sum)}`).join(", ");
  $("plot").setAttribute("aria-label",
    `${$("kind").selectedOptions[0].text} in the last ${$("range").selectedOptions[0].text}: ${words || (isPartlyKept(history) ? "nothing that is known" : "none")}`);
}

// ---- events ----

let events = [];
let showsAllEvents = false;
let sorting = { by: "hits", falling: true };

// An ID is a number, written in hexadecimal digits.
const idNumber = (event) => parseInt(event.event_id, 16);

function compareBy(column, a, b) {
  if (column === "source") return a.source.localeCompare(b.source);
  return column === "event_id" ? idNumber(a) - idNumber(b) : a[column] - b[column];
}

function compareEvents(a, b) {
  const order = compareBy(sorting.by, a, b);
  return (sorting.falling ? -order : order) || compareBy("source", a, b) || compareBy("event_id", a, b);
}

function showEvents() {
  const wanted = $("event-filter").value.toLowerCase();
  const found = events.filter((event) =>
    `${event.source} ${event.event_id} ${event.keywords.join(" ")}`.toLowerCase().includes(wanted)).sort(compareEvents);
  const shown = showsAllEvents ? found : found.slice(0, EVENTS_AT_FIRST);
  fill("event-table", shown.map((event) => [{ button: event.source, title: "Plot this event alone", of: event }, event.event_id, { number: number(event.hits) },
    { number: number(event.alerts) }, { number: number(event.held_back) }, event.keywords.join(" · ")]),
  events.length === 0 ? "No event is registered." : "No event has that.");
  show("event-count", `${number(shown.length)} of ${number(found.length)}`);
  hide("all-events", shown.length === found.length, () => $("event-table").tBodies[0].rows[EVENTS_AT_FIRST]?.querySelector("button"));
  for (const button of document.querySelectorAll("[data-sort]")) {
    const isChosen = button.dataset.sort === sorting.by;
    button.parentElement.setAttribute("aria-sort", !isChosen ? "none" : sorting.falling ? "descending" : "ascending");
  }
}

async function loadEvents() {
  events = (await get("api/v1/events")).events;
  showEvents();
}

// ---- alerts ----

let oldest = null; // shown; older ones are below it
let lookedTo = 0; // id of the newest alert that was looked through, found or not
let room = ALERTS_AT_ONCE; // more are shown when older ones were unfolded
let shownSearch = null; // to which what is shown is the answer
let search = {}; // as it was submitted: what is being typed is not asked for yet

// As milliseconds since 1970: what is chosen is of the zone of this browser. All of the minute that "To" names.
function timeIn(id, more) {
  return $(id).value === "" ? "" : new Date($(id).value).getTime() + more;
}

function submitSearch() {
  search = { text: $("alert-text").value, source: $("alert-source").value, event_id: $("alert-event").value,
    host: $("alert-host").value, since_ms: timeIn("alert-from", 0), until_ms: timeIn("alert-to", 60000) };
}

function alertQuery(more) {
  return `api/v1/alerts?${new URLSearchParams({ limit: ALERTS_AT_ONCE, ...search, ...more })}`;
}

// Of the web alone: an address of another kind, such as javascript:, could do something to the page. It stays a text.
function runbook(address) {
  if (!address) return null;
  const isOfTheWeb = ["http:", "https:"].includes(URL.canParse(address) ? new URL(address).protocol : "");
  const shown = isOfTheWeb ? element("a", { href: address, rel: "noopener noreferrer" }, address) : address;
  return element("p", { className: "quiet" }, "Runbook: ", shown);
}

function labels(alert) {
  const pairs = Object.entries(alert.labels || {}).map(([name, value]) => `${name}=${value}`);
  return pairs.length > 0 ? element("p", { className: "quiet" }, pairs.join(", ")) : null;
}

// Of an event that reports each of its lines, the hits say it all, and they are in the head.
function reasonOf(alert) {
  const saysMore = alert.terms || alert.silence || alert.held_back || alert.reports > 1;
  return saysMore ? element("p", { className: "quiet" }, `Why: ${alert.why}`) : null;
}

function alertItem(alert) {
  const until = alert.reports > 1 ? `until ${new Date(alert.last_time).toLocaleString("en-GB")}` : null;
  const words = [alert.severity, alert.value && `of ${alert.value}`, alert.silence && "silenced", until].filter(Boolean).join(" · ");
  const item = element("li", {},
    element("p", { className: "head" }, element("strong", {}, `${alert.source} ${alert.event_id}`),
      element("span", {}, `×${number(alert.count)}`),
      element("time", { dateTime: alert.time, className: "quiet" }, new Date(alert.time).toLocaleString("en-GB")),
      element("span", { className: "quiet" }, alert.line_host || alert.host),
      words ? element("span", {}, words) : null),
    alert.summary ? element("p", {}, alert.summary) : null,
    element("p", { className: "message" }, alert.message),
    reasonOf(alert), labels(alert), runbook(alert.runbook_url));
  item.dataset.id = alert.id;
  return item;
}

function showAlertCount() {
  const count = $("alert-list").children.length;
  show("alert-count", count === 0 ? "No alert has that." : `${number(count)} shown, newest first`);
}

function showOldest(id) {
  oldest = id;
  hide("more", id === null, () => $("alert-list"));
  showAlertCount();
}

function replaceAlerts(found, asked) {
  $("alert-list").replaceChildren(...found.alerts.map(alertItem));
  lookedTo = found.newest;
  shownSearch = asked;
  room = ALERTS_AT_ONCE;
  showOldest(found.before);
}

async function loadAlerts() {
  const asked = search;
  const found = await get(alertQuery());
  if (asked === search) replaceAlerts(found, asked);
}

// An answer to an earlier search, or one that is shown already, comes too late.
async function loadOlderAlerts() {
  const asked = search;
  const before = oldest;
  const found = await get(alertQuery({ before }));
  if (asked !== search || before !== oldest) return;
  $("alert-list").append(...found.alerts.map(alertItem));
  room += ALERTS_AT_ONCE;
  showOldest(found.before);
}

// A page that is open for days would grow with each new alert. What goes below can be unfolded again.
function dropOldest() {
  const list = $("alert-list");
  if (list.children.length <= room) return;
  while (list.children.length > room) list.lastChild.remove();
  showOldest(Number(list.lastChild.dataset.id));
}

// New ones come on top; what was unfolded below stays, unless there are more than one answer holds. What was looked through
// is not looked through again: a search may find nothing in very many. What is shown may be the answer to an earlier
// search, or of a store that was put back to an earlier state since: then all is asked for.
async function loadNewAlerts() {
  const asked = search;
  if (shownSearch !== asked) return loadAlerts();
  const found = await get(alertQuery({ after: lookedTo }));
  if (asked !== search) return;
  if (found.newest < lookedTo) return loadAlerts();
  if (found.alerts.length === ALERTS_AT_ONCE) {
    replaceAlerts(found, asked);
    return;
  }
  lookedTo = found.newest;
  if (found.alerts.length === 0) return;
  $("alert-list").prepend(...found.alerts.map(alertItem));
  dropOldest();
  showAlertCount();
}

// ---- what makes it load ----

let failure = "";

function failed(error) {
  failure = `Not up to date: ${error.message}.`;
  $("problem").hidden = false;
  show("problem", failure);
}

let isLoading = false;
let isWanted = false;
let triedAt = 0;

// One at a time; what came meanwhile is one more.
async function refresh(load) {
  if (isLoading || document.hidden) {
    isWanted = true;
    return;
  }
  isLoading = true;
  isWanted = false;
  triedAt = performance.now();
  await load().then(() => { failure = ""; }, failed);
  isLoading = false;
}

const loadAll = () => Promise.all([loadOverview(), loadCourse(), loadEvents(), loadAlerts()]);
const loadNews = () => Promise.all([loadOverview(), loadCourse(), loadEvents(), loadNewAlerts()]);

function listen() {
  const stream = new EventSource("api/v1/stream");
  let wasOpen = false;
  stream.onopen = () => {
    show("live", "live");
    setReached(true);
    isWanted = isWanted || wasOpen; // what came while it was not open
    wasOpen = true;
  };
  stream.onerror = () => {
    if (stream.readyState === EventSource.CLOSED) refused();
    else lost();
  };
  stream.addEventListener("pass", () => { isWanted = true; });
}

// The browser opens it again by itself.
function lost() {
  show("live", "what is shown may be old");
  setReached(false);
}

// Something answered, and gave no stream: too many are open, or the token is another now. The browser leaves it at that.
function refused() {
  show("live", `is told of no news: looks every ${duration(REOPEN_MS / 1000)}`);
  isWanted = true;
  setTimeout(listen, REOPEN_MS);
}

function tick() {
  if (performance.now() - triedAt > LOOK_MS) isWanted = true;
  if (isWanted) refresh(loadNews);
  if (overview) {
    showFacts();
    showState();
  }
}

function setTheme(theme) {
  if (theme) document.documentElement.dataset.theme = theme;
  else delete document.documentElement.dataset.theme;
  show("theme", `Theme: ${theme || "automatic"}`);
}

// A browser may refuse to keep anything for a page; then the theme is chosen anew each time.
function keptTheme() {
  try {
    return localStorage.getItem("theme") || "";
  } catch {
    return "";
  }
}

function keepTheme(theme) {
  try {
    localStorage.setItem("theme", theme);
  } catch {
    // It holds until the page is left.
  }
}

function connect() {
  setTheme(keptTheme());
  $("theme").addEventListener("click", () => {
    const next = { "": "light", light: "dark", dark: "" }[document.documentElement.dataset.theme || ""];
    keepTheme(next);
    setTheme(next);
    redraw();
  });
  $("kind").addEventListener("change", () => chooseEvent(OF_EVENTS.includes($("kind").value) ? chosen : null));
  $("range").addEventListener("change", () => {
    showAll();
    moment = null;
    loadCourse().catch(failed);
  });
  $("moment").addEventListener("input", () => chooseMoment(Number($("moment").value)));
  $("all-series").addEventListener("click", () => chooseEvent(null));
  $("event-table").addEventListener("click", (click) => {
    const button = click.target.closest("tbody button");
    if (button) plotEvent(button.of);
  });
  $("event-filter").addEventListener("input", showEvents);
  $("all-events").addEventListener("click", () => {
    showsAllEvents = true;
    showEvents();
  });
  for (const button of document.querySelectorAll("[data-sort]")) button.addEventListener("click", () => {
    const by = button.dataset.sort;
    sorting = { by, falling: sorting.by === by ? !sorting.falling : !["source", "event_id"].includes(by) };
    showEvents();
  });
  $("search").addEventListener("submit", (event) => {
    event.preventDefault();
    submitSearch();
    loadAlerts().catch(failed);
  });
  $("more").addEventListener("click", () => loadOlderAlerts().catch(failed));
  addEventListener("resize", redraw);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redraw);
}

connect();
firstFrame.then(() => {
  refresh(loadAll);
  listen();
  setInterval(tick, 1000);
});
