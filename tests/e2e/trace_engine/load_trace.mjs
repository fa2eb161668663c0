// Loads a trace-event file in the trace engine of Chrome's DevTools
// Performance panel and prints, as one JSON object, what the engine made of
// it: the trace's bounds and, for each process, its name and the complete
// events of its threads. A trace the engine cannot read exits 1 with the
// engine's own error.
//
// Usage: node load_trace.mjs TRACE.json
import fs from 'node:fs';
import * as TraceEngine from '@paulirish/trace_engine';

// The engine measures with the browser's DOMRect; Node has none.
globalThis.DOMRect ??= class DOMRect {
  constructor(x = 0, y = 0, width = 0, height = 0) {
    Object.assign(this, {x, y, width, height});
  }
};

function spansOf(process) {
  const spans = [];
  for (const thread of process.threads.values()) {
    for (const event of thread.entries ?? []) {
      if (event.ph === 'X') {
        spans.push({name: event.name, ts: event.ts, dur: event.dur ?? 0});
      }
    }
  }
  return spans.sort((a, b) => a.ts - b.ts);
}

async function main() {
  const text = fs.readFileSync(process.argv[2], 'utf8');
  const parsed = JSON.parse(text);
  const model = TraceEngine.TraceModel.Model.createWithAllHandlers();
  await model.parse(parsed.traceEvents ?? parsed);
  const data = model.parsedTrace().data;
  const processes = [];
  for (const [pid, process] of data.Renderer.processes) {
    const named = data.Meta.processNames.get(pid);
    processes.push({pid, name: named?.args?.name ?? null, spans: spansOf(process)});
  }
  const bounds = data.Meta.traceBounds;
  console.log(JSON.stringify({bounds: {min: bounds.min, max: bounds.max}, processes}));
}

main().catch(error => {
  console.error(`load_trace: ${error.stack ?? error}`);
  process.exit(1);
});
