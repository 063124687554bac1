// A report of a run that goes on: asks the server that sent the page for what is new.

const ASK_EVERY = 2000;  // milliseconds
const SHARE = 5;  // of the time, the server works at most one part in this many: the run needs the rest

function followRun() {
  const line = byId("live");
  let shown = report.data.stamp, failures = 0;
  line.hidden = false;
  const show = (status) => { line.textContent = status.text; };
  const load = async (name) => {
    try {
      return await (await fetch(name, { cache: "no-store" })).json();
    } catch (error) {  // the server has ended or has been stopped
      return null;
    }
  };
  const ask = async () => {
    const start = performance.now();
    const status = await load("status.json");
    const contents = status && status.stamp && status.stamp !== shown ? await load("contents.json") : null;
    failures = status ? 0 : failures + 1;
    if (status) {
      show(status);
    } else {
      line.textContent = failures < 5 ? "The server does not answer; trying again." :
        "The server has ended. The page keeps what it showed last; the run is not affected.";
    }
    if (failures < 5) { setTimeout(ask, Math.max(ASK_EVERY, (SHARE - 1) * (performance.now() - start))); }
    if (contents) {
      shown = contents.stamp;
      takeContents(contents);
    }
  };
  show(report.data.status);
  setTimeout(ask, ASK_EVERY);
}
