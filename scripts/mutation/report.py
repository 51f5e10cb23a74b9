"""What a run found, for people and for programs."""

import json
import sys


class Report:
    def __init__(self, wanted, seed, sources):
        self.wanted = wanted
        self.seed = seed
        self.sources = sources  # file -> its text
        self.results = []  # one record a fault that counts
        self.apart = {"not compiled": 0, "same code": 0}

    def add(self, mutant, verdict, case, seconds=0.0):
        if verdict in self.apart:
            self.apart[verdict] += 1
            return
        before, after = self.lines(mutant)
        self.results.append({
            "file": mutant.file, "line": mutant.line, "kind": mutant.kind, "verdict": verdict,
            "case": case, "seconds": round(seconds, 1), "before": before, "after": after})
        if sys.stdout.isatty():
            outcome = f"killed by {case}" if case else "SURVIVED"
            print(f"{len(self.results)}/{self.wanted} {mutant.file}:{mutant.line} {mutant.kind} "
                  f"{outcome}", flush=True)

    def lines(self, mutant):
        """The changed lines before and after."""
        text = self.sources[mutant.file]
        changed = mutant.apply(text)
        first = text.rfind("\n", 0, mutant.start) + 1
        tail = len(text) - (text + "\n").index("\n", mutant.end)
        return text[first:len(text) - tail].strip(), changed[first:len(changed) - tail].strip()

    def score(self, room=None):
        """Killed and all faults of a room or of all."""
        of_room = [r for r in self.results if room in (None, r["file"].split("/")[0])]
        return sum(r["verdict"] == "killed" for r in of_room), len(of_room)

    def percent(self):
        killed, total = self.score()
        return 100.0 * killed / total if total else 0.0

    def print(self, seconds, spent):
        for result in sorted(self.results, key=lambda r: (r["file"], r["line"])):
            if result["verdict"] == "survived":
                print(f"SURVIVED {result['file']}:{result['line']} {result['kind']}")
                for mark, text in (("-", result["before"]), ("+", result["after"])):
                    for line in text.splitlines():
                        print(f"    {mark} {line.strip()}")
        for room in sorted({r["file"].split("/")[0] for r in self.results}):
            killed, total = self.score(room)
            print(f"{room:10} {killed:4}/{total:<4} {100 * killed / total:5.1f} %")
        killed, total = self.score()
        print(f"{'all':10} {killed:4}/{total:<4} {self.percent():5.1f} %  (seed {self.seed})")
        apart = ", ".join(f"{count} {verdict}" for verdict, count in self.apart.items())
        times = ", ".join(f"{name} {value:.0f} s" for name, value in spent.items())
        print(f"apart: {apart}; took {seconds:.0f} s; workers: {times}")

    def write(self, path, seconds, spent):
        killed, total = self.score()
        with open(path, "w", encoding="utf-8") as file:
            json.dump({"seed": self.seed, "wanted": self.wanted, "killed": killed, "total": total,
                       "percent": round(self.percent(), 1), "apart": self.apart,
                       "seconds": round(seconds, 1),
                       "spent": {name: round(value, 1) for name, value in spent.items()},
                       "mutants": self.results}, file, indent=1)
            file.write("\n")
