#!/usr/bin/env python3
"""Which tests does the suite need for its coverage?

Runs every GoogleTest case of a coverage build on its own (and every other ctest test whole), records the
library lines and branches each one reaches (gcov's counters, redirected per run with GCOV_PREFIX), then
picks a small set of tests that together reach all of them: tests that reach something no other test
does first, then greedily by new lines and branches per line of test body, then drops every chosen test
that the others cover. Tests outside that set reach nothing the suite would miss; whether one still pins
an outcome no other test asserts (an order of events, a message id) is for a reader to judge.

Usage: scripts/coverage-per-test.py [BUILD_DIR]   (default build-coverage/, made by scripts/coverage.sh)
Writes BUILD_DIR/coverage-per-test.tsv: keep|drop, file:line, body lines, test, what it alone reaches; and
BUILD_DIR/coverage-per-test.json: per case run ("TEST:Suite.Case", or the ctest name) the library lines it
runs, which lets scripts/mutation.py --select run only the cases that can see a mutant.
"""
import collections, json, os, re, shutil, subprocess, sys, tempfile

from gtest_binary import is_gtest, list_cases

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build-coverage"))
LIBRARY = [os.path.join(ROOT, d) + "/" for d in ("ModelCore", "foundation", "platform")]


def ctest_commands():
    """Test name -> command line, from ctest's verbose listing."""
    text = subprocess.run(["ctest", "-N", "-V"], cwd=BUILD, capture_output=True, text=True).stdout
    commands, command = {}, None
    for line in text.splitlines():
        m = re.match(r"^\d+: Test command: (.*)$", line)
        if m:
            command = m.group(1)
        m = re.match(r"^\s*Test\s+#\d+: (\S+)", line)
        if m:
            commands[m.group(1)] = command
    return commands


def units():
    """(name, executable or None, gtest filter or ctest name) for every case to run alone."""
    found = []
    for name, command in ctest_commands().items():
        exe = command.split()[0] if command else ""
        cases = list_cases([exe]) if is_gtest(exe) else []
        if cases:
            found += [(name + ":" + case, exe, case) for case in cases]
        else:
            found.append((name, None, name))
    return found


def reached(prefix):
    """Library ids ("file:line", "file:line:bN") that the counters under prefix record as run."""
    gcdas = [os.path.join(d, f) for d, _, fs in os.walk(prefix) for f in fs if f.endswith(".gcda")]
    for gcda in gcdas:  # gcov looks for the notes file beside the counters
        notes = gcda[len(prefix):][:-5] + ".gcno"
        if os.path.exists(notes):
            os.symlink(notes, gcda[:-5] + ".gcno")
    ids = set()
    for k in range(0, len(gcdas), 40):
        out = subprocess.run(["gcov", "-j", "-t", "-b"] + gcdas[k:k + 40], capture_output=True, text=True,
                             cwd=prefix).stdout
        decoder, i = json.JSONDecoder(), 0
        while True:
            while i < len(out) and out[i].isspace():
                i += 1
            if i >= len(out):
                break
            report, i = decoder.raw_decode(out, i)
            for f in report["files"]:
                path = os.path.normpath(os.path.join(BUILD, f["file"]))
                if not any(path.startswith(d) for d in LIBRARY):
                    continue
                path = path[len(ROOT) + 1:]
                for line in f["lines"]:
                    if line["count"] > 0:
                        ids.add("%s:%d" % (path, line["line_number"]))
                    for n, branch in enumerate(line.get("branches", [])):
                        if branch["count"] > 0 and not branch.get("throw"):
                            ids.add("%s:%d:b%d" % (path, line["line_number"], n))
    return ids


def run_alone(unit, prefix):
    name, exe, which = unit
    shutil.rmtree(prefix, ignore_errors=True)
    env = dict(os.environ, GCOV_PREFIX=prefix)
    if exe:
        subprocess.run([exe, "--gtest_filter=" + which], env=env, cwd=os.path.dirname(exe), capture_output=True)
    else:
        subprocess.run(["ctest", "-R", "^%s$" % which], env=env, cwd=BUILD, capture_output=True)
    return reached(prefix)


def test_bodies():
    """(suite, name) -> (file:line, non-blank non-comment lines of its body)."""
    bodies = {}
    for d, _, fs in os.walk(os.path.join(ROOT, "tests")):
        for f in (f for f in fs if f.endswith(".cpp")):
            path = os.path.join(d, f)
            text = re.sub(r"/\*.*?\*/", "", open(path).read(), flags=re.S)
            lines = [re.sub(r"//.*$", "", line) for line in text.split("\n")]
            for i, line in enumerate(lines):
                m = re.match(r"^(?:TEST|TEST_F|TEST_P|TYPED_TEST)\((\w+),\s*(\w+)\)", line)
                if m:
                    end = i
                    while end < len(lines) and lines[end].rstrip() != "}":
                        end += 1
                    size = sum(1 for body in lines[i:end + 1] if body.strip())
                    bodies[(m.group(1), m.group(2))] = ("%s:%d" % (path[len(ROOT) + 1:], i + 1), size)
    return bodies


def main():
    if not any(f.endswith(".gcno") for _, _, fs in os.walk(BUILD) for f in fs):
        sys.exit("coverage-per-test: %s holds no coverage build (run scripts/coverage.sh first)" % BUILD)
    bodies = test_bodies()
    per_test = collections.defaultdict(set)
    where = {}
    lines_run = {}
    with tempfile.TemporaryDirectory() as tmp:
        for unit in units():
            ids = run_alone(unit, os.path.join(tmp, "run"))
            lines_run[unit[0]] = sorted(i for i in ids if ":b" not in i)
            if unit[1]:  # typed and value-parameterised instances count as their one TEST
                suite, case = unit[2].split(".", 1)
                case = case.split("/")[0]
                key = next(((s, case) for s in suite.split("/") if (s, case) in bodies), (suite, case))
                test = "%s.%s" % key
                where[test] = bodies.get(key, ("?", 0))
            else:
                test = unit[0]
                where[test] = ("ctest", 0)
            per_test[test] |= ids
    everything = set().union(*per_test.values())
    runs = collections.Counter(i for ids in per_test.values() for i in ids)
    chosen = [t for t in per_test if where[t][1] == 0 or any(runs[i] == 1 for i in per_test[t])]
    covered = set().union(*(per_test[t] for t in chosen)) if chosen else set()
    rest = [t for t in per_test if t not in chosen]
    while covered != everything:
        best = max(rest, key=lambda t: len(per_test[t] - covered) / max(where[t][1], 1))
        chosen.append(best)
        covered |= per_test[best]
        rest.remove(best)
    for t in sorted(chosen, key=lambda t: -where[t][1]):
        if where[t][1] and per_test[t] <= set().union(*(per_test[u] for u in chosen if u != t)):
            chosen.remove(t)
    out = os.path.join(BUILD, "coverage-per-test.tsv")
    with open(out, "w") as report:
        for t in sorted(per_test, key=lambda t: where[t]):
            if where[t][1] == 0:
                continue
            alone = per_test[t] - set().union(*(per_test[u] for u in chosen if u != t))
            report.write("%s\t%s\t%d\t%s\t%s\n" % ("keep" if t in chosen else "drop", where[t][0], where[t][1], t,
                                                 " ".join(sorted(alone))))
    with open(os.path.join(BUILD, "coverage-per-test.json"), "w") as sets:
        json.dump(lines_run, sets)
    body = sum(where[t][1] for t in per_test)
    kept = sum(where[t][1] for t in chosen)
    print("coverage-per-test: %d tests, %d lines and branches; %d tests (%d of %d body lines) reach them all -> %s"
          % (sum(1 for t in per_test if where[t][1]), len(everything), sum(1 for t in chosen if where[t][1]), kept,
             body, out))


if __name__ == "__main__":
    main()
