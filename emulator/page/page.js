// The page of the local control plane. What devices and policies say is only ever set as text, never as HTML.
import { clearDevices, showDevices, setLiveEtag } from "./devices.js";
import { elements } from "./elements.js";
import { showPolicy } from "./policy.js";
import { loadFaultKinds, showFaults } from "./faults.js";

const [connection] = elements("connection");

function listen() {
  const events = new EventSource("/events");
  events.addEventListener("open", () => {
    clearDevices();
    connection.textContent = "Live";
  });
  events.addEventListener("error", () => {
    connection.textContent = "Connection lost; trying again …";
  });
  events.addEventListener("policy", (event) => {
    const policy = JSON.parse(event.data);
    setLiveEtag(policy ? policy.tag : null);
    showPolicy(policy);
  });
  events.addEventListener("faults", (event) => showFaults(JSON.parse(event.data)));
  events.addEventListener("devices", (event) => showDevices(JSON.parse(event.data)));
}

loadFaultKinds();
listen();
