// The style sheet of the page of "netro watch --html". Text has a contrast of 4.5 to 1 at least,
// light and dark (WCAG 2, AA), and no state is told by colour alone. Thread: any.
#pragma once

namespace netro::tool {

constexpr const char* kWatchPageStyle = R"(
:root { color-scheme: light dark; --ground: #fff; --panel: #f4f6f8; --line: #d5dae0; --text: #1b2027;
  --quiet: #57606a; --up: #17692f; --down: #b3121f; --bar: #2f6db5; --lost: #d9303e; --fine: #2da44e; --partly: #b26a00; --longest: #a9c4e4; }
@media (prefers-color-scheme: dark) {
  :root { --ground: #10141a; --panel: #1a2029; --line: #343c48; --text: #e6eaf0; --quiet: #9ea8b5;
    --up: #5fd07f; --down: #ff8a85; --bar: #74a9e8; --lost: #ff6b66; --fine: #3fae63;
    --partly: #e0a030; --longest: #35547a; }
}
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 84rem; padding: 1.5rem; background: var(--ground);
  color: var(--text); font: 1rem/1.45 system-ui, sans-serif; }
h1 { font-size: 1.6rem; line-height: 1.2; margin: 0 0 .25rem; }
h2 { font-size: 1.1rem; margin: 2rem 0 .5rem; }
p { margin: 0; color: var(--quiet); }
.frame { margin-top: 1.25rem; overflow-x: auto; border: 1px solid var(--line);
  border-radius: .5rem; }
h2 + .frame { margin-top: 0; }
table { width: 100%; border-collapse: collapse; font-variant-numeric: tabular-nums; }
th, td { padding: .5rem .75rem; text-align: left; vertical-align: top;
  border-top: 1px solid var(--line); }
thead th { border: 0; background: var(--panel); color: var(--quiet); font-size: .85rem;
  font-weight: 600; white-space: nowrap; }
.host { min-width: 12rem; font-weight: 600; }
.text { min-width: 13rem; }
.host, .text { overflow-wrap: anywhere; }
.when { white-space: nowrap; }
small { display: block; color: var(--quiet); font-size: .8rem; font-weight: 400; }
.state { font-weight: 600; white-space: nowrap; }
.up { color: var(--up); }
.down { color: var(--down); }
.unseen, .unreachable { color: var(--quiet); }
.chart { min-width: 15rem; }
summary { cursor: pointer; font-size: .8rem; color: var(--quiet); }
ul { margin: .25rem 0 0; padding-left: 1.1rem; font-size: .8rem; }
svg + small { margin-bottom: .25rem; }
svg { display: block; width: 15rem; height: 1.75rem; background: var(--panel);
  border-radius: .2rem; }
.bar { stroke: var(--bar); stroke-width: 1.5; fill: none; }
.lost { stroke: var(--lost); stroke-width: 1.5; fill: none; }
.longest { stroke: var(--longest); stroke-width: 4; fill: none; }
.curve { stroke: var(--bar); stroke-width: 1.5; fill: none; }
rect { stroke: none; }
rect.fine { fill: var(--fine); }
rect.partly { fill: var(--partly); }
rect.lost { fill: var(--lost); stroke: none; }
@media (max-width: 48rem) {
  body { padding: 1rem; }
  thead { display: none; }
  table, tbody, tr, td, th { display: block; }
  tr { padding: .5rem 0; border-top: 1px solid var(--line); }
  tr:first-child { border: 0; }
  th, td { padding: .25rem .75rem; border: 0; }
  .host, .text, .chart { min-width: 0; }
  svg { width: 100%; }
}
)";

}  // namespace netro::tool
