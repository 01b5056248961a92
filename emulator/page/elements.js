// Finding and making the elements of the page.

// Those with these ids, in their order.
export function elements(...ids) {
  return ids.map((id) => document.getElementById(id));
}

// A new one. What devices and policies say gets into the page as text, never as HTML.
export function made(name, text = "", className = "") {
  const element = document.createElement(name);
  element.textContent = text;
  if (className) {
    element.className = className;
  }
  return element;
}

// A button that does `action`.
export function button(text, action) {
  const element = made("button", text);
  element.type = "button";
  element.addEventListener("click", action);
  return element;
}
