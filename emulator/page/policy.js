// The editor of the policy: check, difference from what is live, what becomes of it, publication.
import { differences } from "./diff.js";
import { elements, made } from "./elements.js";

const [editor, check, diff, capture, liveEtag] = elements("editor", "check", "diff", "capture", "live-etag");
const [publish, nextEtag, revert] = elements("publish", "next-etag", "revert");

const around = 2; // lines of context in the difference
let live = "";
let asked = 0; // previews, of which only the last counts

function say(text, isGood) {
  check.textContent = text;
  check.className = isGood ? "good" : "bad";
}

function showDiff() {
  const rows = differences(live, editor.value);
  if (rows === null) {
    diff.textContent = "Too long to compare.";
    return;
  }
  const isNear = (at) => rows.slice(Math.max(0, at - around), at + around + 1).some(({ kind }) => kind !== "same");
  const lines = rows.filter((_, at) => isNear(at)).map(({ kind, line }) =>
    kind === "added" ? made("ins", `+ ${line}`) : kind === "removed" ? made("del", `- ${line}`) : made("div", `  ${line}`));
  diff.replaceChildren(...(lines.length === 0 ? ["Nothing."] : lines));
}

function objectIn(text) {
  const value = JSON.parse(text);
  if (value === null || typeof value !== "object" || Array.isArray(value)) {
    throw new SyntaxError("a policy is a JSON object");
  }
  return value;
}

async function showPreview() {
  const number = ++asked;
  const answer = await fetch("/preview", { method: "POST", body: editor.value });
  const preview = await answer.json();
  if (number !== asked) {
    return;
  }
  capture.textContent = !answer.ok ? preview.error
    : preview.capture === null ? "The policy says nothing about capture: capture-policy.json stays as it is."
    : JSON.stringify(preview.capture, null, 2);
  publish.disabled = !answer.ok;
  if (!answer.ok) {
    say(preview.error, false);
  } else if (preview.tag === liveEtag.textContent && editor.value !== live) {
    say("Valid JSON, but with the live ETag: agents that have it would not be sent this policy.", false);
  } else {
    say("Valid JSON.", true);
  }
}

function look() {
  showDiff();
  try {
    objectIn(editor.value);
  } catch (error) {
    ++asked;
    capture.textContent = "";
    publish.disabled = true;
    say(error.message, false);
    return;
  }
  showPreview();
}

export function showPolicy(policy) {
  const isUntouched = editor.value === live;
  live = policy ? policy.text : "";
  liveEtag.textContent = policy ? policy.tag : "none";
  if (isUntouched) {
    editor.value = live;
  }
  look();
}

publish.addEventListener("click", async () => {
  const answer = await fetch("/policy", { method: "PUT", body: editor.value });
  if (answer.ok) {
    live = editor.value;
    say("Published.", true);
  } else {
    say((await answer.json()).error, false);
  }
});

// The text with another ETag, otherwise as it is: JavaScript would round large numbers.
function withEtag(text, etag) {
  const policy = objectIn(text);
  const before = typeof policy.etag === "string" ? JSON.stringify(policy.etag) : "";
  const replaced = text.replace(new RegExp(`("etag"\\s*:\\s*)${before.replace(/[.*+?^${}()|[\]\\]/g, "\\$&")}`),
    (_, name) => name + JSON.stringify(etag));
  if (before !== "" && JSON.parse(replaced).etag === etag) {
    return replaced;
  }
  return JSON.stringify({ ...policy, etag }, null, 2) + "\n";
}

nextEtag.addEventListener("click", () => {
  try {
    editor.value = withEtag(editor.value, `page-${new Date().toISOString().replace(/[^0-9TZ]/g, "")}`);
  } catch {
    // look() says what is wrong.
  }
  look();
});

revert.addEventListener("click", () => {
  editor.value = live;
  look();
});

editor.addEventListener("input", look);
