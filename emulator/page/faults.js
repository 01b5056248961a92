// The switches for faults.
import { button, elements, made } from "./elements.js";

const [form, kinds, active, message] = elements("fault-form", "fault-kinds", "active-faults", "fault-message");

let faults = [];

function wanted(name) {
  const fault = { name };
  const device = form.elements.device.value.trim();
  const percent = Number(form.elements.percent.value);
  const seconds = Number(form.elements.seconds.value);
  if (device !== "") {
    fault.device = device;
  }
  if (percent !== 100) {
    fault.percent = percent;
  }
  if (seconds !== 0) {
    fault.seconds = seconds;
  }
  return fault;
}

async function put(list) {
  const answer = await fetch("/faults", { method: "PUT", body: JSON.stringify(list) });
  message.textContent = answer.ok ? "" : (await answer.json()).error;
  message.className = "bad";
}

function words({ name, device, percent, seconds }) {
  return `${name} for ${device ?? "all devices"}` + (percent ? `, ${percent} % of polls` : "") +
    (seconds ? `, for ${seconds} s` : "");
}

export function showFaults(list) {
  faults = list;
  active.replaceChildren(...(list.length === 0 ? ["None."] : list.map((fault, at) => {
    const item = made("li", `${words(fault)} `);
    const off = button("Switch off", () => put(faults.filter((_, other) => other !== at)));
    off.setAttribute("aria-label", `Switch off ${words(fault)}`);
    item.append(off);
    return item;
  })));
}

export async function loadFaultKinds() {
  const answer = await fetch("/fault-kinds");
  kinds.replaceChildren(...(await answer.json()).map(({ name, meaning }) => {
    // The newest first: of those that strike a poll the first counts.
    const on = button("", () => put([wanted(name), ...faults]));
    on.dataset.fault = name;
    on.append(made("strong", name), made("span", meaning));
    const item = made("li");
    item.append(on);
    return item;
  }));
}

// Has the next fault strike only this device.
export function aimFaultsAt(device) {
  form.elements.device.value = device;
  form.elements.device.focus();
}

form.addEventListener("submit", (event) => event.preventDefault());
