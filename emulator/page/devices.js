// The table of devices and the timeline of the one that is chosen.
import { button, elements, made } from "./elements.js";
import { aimFaultsAt } from "./faults.js";

const [rows, filter, count, names] = elements("rows", "filter", "count", "device-names");
const [timeline, timelineHeading, exchanges] = elements("timeline", "timeline-heading", "exchanges");
const [faultDevice, closeTimeline] = elements("fault-device", "close-timeline");

const devices = new Map(); // by name: { data, row, and the cells that change }
let liveEtag = null;
let chosen = null;

function title(name) {
  return name === "-" ? "(no agent slug)" : name;
}

function cell(row, label, className = "") {
  const element = made("td", "", className);
  element.dataset.label = label;
  row.append(element);
  return element;
}

function makeRow(name) {
  const row = made("tr");
  cell(row, "Device").append(button(title(name), () => choose(name)));
  const held = cell(row, "Held");
  const progress = made("progress");
  const heldText = made("span");
  held.append(progress, " ", heldText);
  const device = {
    row,
    progress,
    heldText,
    outcome: cell(row, "Last answer"),
    etag: cell(row, "ETag", "etag"),
    enrolled: cell(row, "Enrolled by"),
    seen: cell(row, "Last seen"),
  };
  devices.set(name, device);
  rows.append(row);
  const option = made("option");
  option.value = name;
  names.append(option);
  return device;
}

// What became of an exchange, in a few words.
export function outcome(exchange) {
  const fault = exchange.fault ? ` (fault: ${exchange.fault})` : "";
  if (exchange.hung_up) {
    return `hung up${fault}`;
  }
  return (exchange.status === 0 ? "no answer" : String(exchange.status)) + fault;
}

function isGood(exchange) {
  return !exchange.hung_up && !exchange.fault && (exchange.status === 200 || exchange.status === 304);
}

function unquoted(etag) {
  return etag.startsWith('"') && etag.endsWith('"') && etag.length > 1 ? etag.slice(1, -1) : etag;
}

function showEtag(device) {
  const etag = unquoted(device.data.tag);
  const isLive = etag !== "" && etag === liveEtag;
  device.etag.textContent = etag === "" ? "none" : `${isLive ? "live" : "other"}: ${etag}`;
  device.etag.title = etag;
  device.etag.classList.toggle("good", isLive);
}

function showHold(device, now) {
  const { held, held_since: since, wait, fault } = device.data;
  device.progress.hidden = held === 0;
  if (held === 0) {
    device.heldText.textContent = "no";
    return;
  }
  const seconds = Math.max(0, Math.round((now - since) / 1000));
  device.progress.max = Math.max(wait, 1);
  device.progress.value = Math.min(seconds, wait);
  device.progress.setAttribute("aria-label", `held ${seconds} of ${wait} seconds`);
  device.heldText.textContent =
    `${seconds} of ${wait} s` + (held > 1 ? `, ${held} polls` : "") + (fault ? ` (fault: ${fault})` : "");
}

function showRow(device) {
  const { last, identity, last_seen: seen } = device.data;
  device.outcome.textContent = last ? outcome(last) : "none yet";
  device.outcome.className = !last ? "" : isGood(last) ? "good" : "bad";
  device.enrolled.textContent = identity ? "device identity" : "key";
  device.seen.textContent = new Date(seen).toLocaleTimeString();
  showEtag(device);
  showHold(device, Date.now());
}

function isMeant(device) {
  const wanted = filter.value.trim().toLowerCase();
  return wanted === "" || device.row.textContent.toLowerCase().includes(wanted);
}

function applyFilter() {
  let shown = 0;
  for (const device of devices.values()) {
    device.row.hidden = !isMeant(device);
    shown += device.row.hidden ? 0 : 1;
  }
  count.textContent =
    devices.size === 0 ? "No devices yet" : shown === devices.size ? `${shown} devices` : `${shown} of ${devices.size} devices`;
}

export function showDevices(list) {
  for (const data of list) {
    const device = devices.get(data.name) ?? makeRow(data.name);
    device.data = data;
    showRow(device);
  }
  applyFilter();
  if (chosen !== null && list.some((data) => data.name === chosen)) {
    loadTimeline();
  }
}

export function clearDevices() {
  devices.clear();
  rows.replaceChildren();
  names.replaceChildren();
  applyFilter();
}

export function setLiveEtag(etag) {
  liveEtag = etag;
  for (const device of devices.values()) {
    showEtag(device);
  }
}

function exchangeItem(exchange) {
  const item = made("li", "", isGood(exchange) ? "" : "bad");
  const held = (exchange.held / 1000).toFixed(1);
  item.textContent =
    `${new Date(exchange.at).toLocaleTimeString()}  ${outcome(exchange)}, ${exchange.bytes} bytes after ${held} s  ` +
    `${exchange.method} ${exchange.target}` + (exchange.tag ? `  If-None-Match ${exchange.tag}` : "");
  return item;
}

async function loadTimeline() {
  const name = chosen;
  const answer = await fetch(`/timeline?device=${encodeURIComponent(name)}`);
  if (answer.ok && name === chosen) {
    exchanges.replaceChildren(...(await answer.json()).reverse().map(exchangeItem));
  }
}

function choose(name) {
  chosen = name;
  timeline.hidden = name === null;
  for (const [other, device] of devices) {
    device.row.setAttribute("aria-selected", String(other === name));
  }
  if (name !== null) {
    timelineHeading.textContent = `Timeline of ${title(name)}`;
    exchanges.replaceChildren();
    loadTimeline();
    timeline.scrollIntoView({ block: "nearest" });
  }
}

filter.addEventListener("input", applyFilter);
closeTimeline.addEventListener("click", () => choose(null));
faultDevice.addEventListener("click", () => aimFaultsAt(chosen));
setInterval(() => {
  const now = Date.now();
  for (const device of devices.values()) {
    if (device.data.held > 0) {
      showHold(device, now);
    }
  }
}, 1000);
