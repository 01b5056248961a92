// The difference between two texts, line by line: a longest common subsequence, for policies of some thousand lines.
const mostCells = 4_000_000;

// Rows of { kind: "same" | "removed" | "added", line }; null when the texts are too long for that.
export function differences(before, after) {
  const a = before.split("\n");
  const b = after.split("\n");
  if (a.length * b.length > mostCells) {
    return null;
  }
  const width = b.length + 1;
  const common = new Uint32Array((a.length + 1) * width);
  for (let i = a.length - 1; i >= 0; --i) {
    for (let j = b.length - 1; j >= 0; --j) {
      common[i * width + j] =
        a[i] === b[j]
          ? common[(i + 1) * width + j + 1] + 1
          : Math.max(common[(i + 1) * width + j], common[i * width + j + 1]);
    }
  }
  const rows = [];
  let i = 0;
  let j = 0;
  while (i < a.length || j < b.length) {
    if (i < a.length && j < b.length && a[i] === b[j]) {
      rows.push({ kind: "same", line: a[i] });
      ++i;
      ++j;
    } else if (j === b.length || (i < a.length && common[(i + 1) * width + j] >= common[i * width + j + 1])) {
      rows.push({ kind: "removed", line: a[i++] });
    } else {
      rows.push({ kind: "added", line: b[j++] });
    }
  }
  return rows;
}
