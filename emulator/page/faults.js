// The switches for faults.
const form = document.getElementById("fault-form");
const kinds = document.getElementById("fault-kinds");
const active = document.getElementById("active-faults");
const message = document.getElementById("fault-message");

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
    const item = document.createElement("li");
    const button = document.createElement("button");
    button.type = "button";
    button.textContent = "Switch off";
    button.setAttribute("aria-label", `Switch off ${words(fault)}`);
    button.addEventListener("click", () => put(faults.filter((_, other) => other !== at)));
    item.append(`${words(fault)} `, button);
    return item;
  })));
}

export async function loadFaultKinds() {
  const answer = await fetch("/fault-kinds");
  kinds.replaceChildren(...(await answer.json()).map(({ name, meaning }) => {
    const item = document.createElement("li");
    const button = document.createElement("button");
    const title = document.createElement("strong");
    const text = document.createElement("span");
    button.type = "button";
    button.dataset.fault = name;
    title.textContent = name;
    text.textContent = meaning;
    button.append(title, text);
    // The newest first: of those that strike a poll the first counts.
    button.addEventListener("click", () => put([wanted(name), ...faults]));
    item.append(button);
    return item;
  }));
}

// Has the next fault strike only this device.
export function aimFaultsAt(device) {
  form.elements.device.value = device;
  form.elements.device.focus();
}

form.addEventListener("submit", (event) => event.preventDefault());
