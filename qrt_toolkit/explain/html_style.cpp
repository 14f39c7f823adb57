#include "qrt_toolkit/explain/html_parts.h"

namespace marlo::toolkit {

const char* html_style() {
  return R"(:root { color-scheme: light dark; --ink: #1a1a1a; --paper: #ffffff; --faint: #767676;
  --edge: #d0d0d0; --link: #0b57d0; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #ececec; --paper: #161616; --faint: #a0a0a0; --edge: #444444; --link: #8ab4f8; }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--paper); color: var(--ink);
  font: 16px/1.5 system-ui, sans-serif; }
main { max-width: 75rem; margin: 0 auto; padding: 1rem; }
h1 { overflow-wrap: anywhere; }
a { color: var(--link); }
a:focus-visible, summary:focus-visible { outline: 3px solid var(--link); outline-offset: 2px; }
.wide { overflow-x: auto; max-width: 100%; }
table { border-collapse: collapse; margin: 1rem 0; }
caption { text-align: left; font-weight: bold; padding: .3rem 0; }
th, td { border-bottom: 1px solid var(--edge); padding: .2rem .6rem; text-align: left;
  vertical-align: top; }
th[scope=row] { font-weight: normal; overflow-wrap: anywhere; min-width: 7rem; }
th.n { text-align: right; }
td.share { white-space: nowrap; }
td code { display: inline-block; min-width: 12rem; }
td.n { text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap; }
code { font-size: .85em; overflow-wrap: anywhere; }
svg { display: block; width: 100%; }
svg.timeline { height: 5rem; }
svg.intensity { height: auto; }
svg text { fill: var(--ink); font-size: 14px; }
svg a:focus { outline: none; }
svg a:focus rect, svg a:focus circle { stroke: var(--ink); stroke-width: 3;
  vector-effect: non-scaling-stroke; }
svg rect { stroke: var(--paper); stroke-width: .5; vector-effect: non-scaling-stroke; }
.grid { stroke: var(--edge); }
.roof { stroke: var(--faint); stroke-width: 2; }
.legend { list-style: none; display: flex; flex-wrap: wrap; gap: .3rem 1.2rem; padding: 0; }
.swatch { display: inline-block; width: 1em; height: 1em; margin-right: .4em;
  vertical-align: -.15em; }
.bar { display: inline-block; width: 6rem; height: .8em; border: 1px solid var(--faint); }
.bar span { display: block; height: 100%; }
.arithmetic { background: #0072b2; }
.memory { background: #e69f00; }
.kind0 { fill: #0072b2; background: #0072b2; }
.kind1 { fill: #e69f00; background: #e69f00; }
.kind2 { fill: #009e73; background: #009e73; }
.kind3 { fill: #cc79a7; background: #cc79a7; }
.kind4 { fill: #56b4e9; background: #56b4e9; }
.kind5 { fill: #d55e00; background: #d55e00; }
.kind6 { fill: #f0e442; background: #f0e442; }
.kind7 { fill: #999999; background: #999999; }
.converter { fill: #b00020; background: #b00020; }
.engine { fill: #bbbbbb; background: #bbbbbb; }
details { border: 1px solid var(--edge); border-radius: .3rem; margin: .4rem 0;
  padding: .3rem .8rem; }
summary { cursor: pointer; overflow-wrap: anywhere; }
dd { margin-left: 1.5rem; overflow-wrap: anywhere; }
dt { margin-top: .4rem; }
)";
}

}  // namespace marlo::toolkit
