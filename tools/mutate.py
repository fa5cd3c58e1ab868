#!/usr/bin/python3
"""Mutation testing of the library against the test suite.

A mutant is one small change to one line of a library source (a flipped
comparison, a shifted boundary, a changed constant, + for -, a dropped
statement, a negated condition, ...). The suite kills it when some test fails
(or a test program times out); a mutant that survives points at behaviour no
test checks.

  draw  picks mutants with a seed from the .cc files of functions/,
        algorithms/, constraints/ and io/: a line is drawn uniformly among the
        lines that can be mutated (so files weigh by their lines), then one of
        the line's mutations. Comments, preprocessor lines, string literals,
        and the arguments of throws, asserts, logging and message formatting
        are never mutated.
  run   copies the tree into a scratch folder, builds it once, then for each
        mutant: applies it, rebuilds incrementally, runs every test program
        (stopping at the first failure), records the outcome and restores the
        line. A mutant that does not build is recorded as "uncompilable" and
        does not count; with --limit, the run goes on down the list until that
        many mutants built.

  applicable  keeps the mutants of a list whose original line is still in a
        tree: run on a later tree, it gives a sample that means the same
        mutation in both trees.

Mutant lists are tab-separated: id, file, line, original text, mutated text
(an empty mutated text drops the line). A results file has the same columns
after id, status, seconds and the first failing test, and is itself a valid
mutant list. On a later tree a mutant is applied where its original text
still is (at its line, else at the nearest line with the same text, ignoring
indentation); when the text is gone it is recorded as "not-applicable".

Examples:
  tools/mutate.py draw --seed 15 --count 120 > /tmp/candidates.tsv
  nice -n 15 tools/mutate.py run --mutants /tmp/candidates.tsv --limit 50 \\
      --results tools/mutants/before.tsv --sample-out tools/mutants/sample.tsv
  nice -n 15 tools/mutate.py run --mutants tools/mutants/sample.tsv \\
      --results tools/mutants/after.tsv
"""

import argparse
import filecmp
import os
import random
import re
import shutil
import subprocess
import sys
import time

FOLDERS = ("functions", "algorithms", "constraints", "io")
COLUMNS = ("id", "file", "line", "original", "mutated")
RESULT_COLUMNS = ("id", "status", "seconds", "detail", "file", "line", "original", "mutated")

# ----- Which characters of a source may be mutated ---------------------------

# Statements whose arguments are message texts or checks compiled out of
# release builds: masked from the keyword to the end of the statement.
MASKED_STATEMENT = re.compile(
    r"\b(VELMOR_THROW\w*|throw|assert|static_assert|logger->\w+|spdlog::\w+|\w*GetLogger|"
    r"SPDLOG_\w+)\b")
# Calls whose arguments are message texts: masked to the closing parenthesis.
MASKED_CALL = re.compile(r"\b(fmt::format|MakeSourceMessage|LocatedMessage\w*)\s*\(")


def code_mask(text):
    """True for every character of `text` that is code outside comments,
    literals, preprocessor lines and masked statements."""
    mask = [True] * len(text)
    i, n = 0, len(text)
    at_line_start = True
    while i < n:
        c = text[i]
        if at_line_start and c == "#":
            j = i
            while j < n and text[j] != "\n":
                if text[j] == "\\" and j + 1 < n and text[j + 1] == "\n":
                    j += 1
                j += 1
            for k in range(i, j):
                mask[k] = False
            i = j
            continue
        if c == "\n":
            at_line_start = True
            i += 1
            continue
        if not c.isspace():
            at_line_start = False
        if text.startswith("//", i):
            j = text.find("\n", i)
            j = n if j < 0 else j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
        elif c == "R" and text.startswith('R"', i) and (i == 0 or not text[i - 1].isalnum()):
            open_paren = text.find("(", i)
            delimiter = text[i + 2:open_paren]
            j = text.find(")" + delimiter + '"', open_paren)
            j = n if j < 0 else j + len(delimiter) + 2
        elif c in "\"'":
            if c == "'" and i > 0 and text[i - 1].isalnum():  # digit separator
                i += 1
                continue
            j = i + 1
            while j < n and text[j] != c:
                j += 2 if text[j] == "\\" else 1
            j += 1
        else:
            i += 1
            continue
        for k in range(i, min(j, n)):
            if text[k] != "\n":
                mask[k] = False
        i = j

    def mask_until(start, stop_at_semicolon):
        depth, j = 0, start
        while j < n:
            if mask[j]:
                if text[j] in "([{":
                    depth += 1
                elif text[j] in ")]}":
                    depth -= 1
                    if depth == 0 and not stop_at_semicolon:
                        j += 1
                        break
                    if depth < 0:
                        break
                elif text[j] == ";" and depth == 0 and stop_at_semicolon:
                    j += 1
                    break
            j += 1
        for k in range(start, j):
            if text[k] != "\n":
                mask[k] = False

    for m in MASKED_STATEMENT.finditer(text):
        if mask[m.start()]:
            mask_until(m.start(), True)
    for m in MASKED_CALL.finditer(text):
        if mask[m.start()]:
            mask_until(m.start(), False)
    return mask


# ----- Mutation operators -----------------------------------------------------

# Binary operators as clang-format writes them (spaces on both sides, which
# tells them from template brackets, pointers and unary signs).
BINARY = {
    " < ": (" <= ", " >= "),
    " <= ": (" < ", " > "),
    " > ": (" >= ", " <= "),
    " >= ": (" > ", " < "),
    " == ": (" != ",),
    " != ": (" == ",),
    " && ": (" || ",),
    " || ": (" && ",),
    " + ": (" - ",),
    " - ": (" + ",),
    " * ": (" / ",),
    " / ": (" * ",),
    " += ": (" -= ",),
    " -= ": (" += ",),
    " *= ": (" /= ",),
    " /= ": (" *= ",),
}
BINARY_PATTERN = re.compile("|".join(re.escape(k) for k in sorted(BINARY, key=len, reverse=True)))
WORDS = {"true": "false", "false": "true", "std::min": "std::max", "std::max": "std::min",
         "minCoeff": "maxCoeff", "maxCoeff": "minCoeff", "break": "continue"}
WORD_PATTERN = re.compile(r"(?<![\w:])(true|false|std::min|std::max|minCoeff|maxCoeff|break)\b")
NUMBER = re.compile(r"(?<![\w.])(\d+\.\d*|\.\d+|\d+)([eE][+-]?\d+)?([fFuUlL]*)(?![\w.])")
CONDITION = re.compile(r"\b(if|while) \(")
NOT = re.compile(r"!(?!=)")
# Not the step of a loop (the mutant would only time out).
INCREMENT = re.compile(r"(?<!; )(\+\+|--)(?!\w+\))")
DECLARATION = re.compile(
    r"(const|constexpr|static|auto|unsigned)\b|[\w:]+(<.*>)?[*&]*\s+[*&]?[A-Za-z_]\w*\s*[=({;\[]")


def all_code(mask, start, end):
    return all(mask[start:end])


def line_mutations(line, mask):
    """Every mutation of one line: (mutated line, kind)."""
    out = []
    for m in BINARY_PATTERN.finditer(line):
        if all_code(mask, m.start(), m.end()):
            for replacement in BINARY[m.group(0)]:
                out.append((line[:m.start()] + replacement + line[m.end():], "operator"))
    for m in WORD_PATTERN.finditer(line):
        if all_code(mask, m.start(), m.end()):
            out.append((line[:m.start()] + WORDS[m.group(1)] + line[m.end():], "swap"))
    for m in NUMBER.finditer(line):
        if not all_code(mask, m.start(), m.end()):
            continue
        digits, exponent, suffix = m.group(1), m.group(2) or "", m.group(3)
        if "." in digits or exponent:
            value = float(digits + exponent)
            new = repr(value * 2 if value != 0 else 1.0)
        else:
            value = int(digits)
            new = str(value - 1 if value > 1 else value + 1)
        out.append((line[:m.start()] + new + suffix + line[m.end():], "constant"))
    for m in NOT.finditer(line):
        if mask[m.start()]:
            out.append((line[:m.start()] + line[m.end():], "negation"))
    for m in CONDITION.finditer(line):
        if not mask[m.start()]:
            continue
        open_paren = m.end() - 1
        depth, j = 0, open_paren
        while j < len(line):
            if line[j] == "(":
                depth += 1
            elif line[j] == ")":
                depth -= 1
                if depth == 0:
                    break
            j += 1
        if j < len(line) and all_code(mask, open_paren, j + 1):
            out.append((line[:open_paren + 1] + "!(" + line[open_paren + 1:j] + ")" + line[j:],
                        "negation"))
    if not re.match(r"\s*for \(", line):
        for m in INCREMENT.finditer(line):
            if all_code(mask, m.start(), m.end()):
                other = "--" if m.group(1) == "++" else "++"
                out.append((line[:m.start()] + other + line[m.end():], "operator"))
    return out


def droppable(lines, masks, index):
    """Whether line `index` is one whole statement that can be left out."""
    code = "".join(c if ok else " " for c, ok in zip(lines[index], masks[index])).strip()
    if not code.endswith(";") or "{" in code or "}" in code:
        return False
    if re.match(r"(return|case|default|template|using|typedef|namespace)\b", code):
        return False
    if DECLARATION.match(code):
        return False  # leaving it out does not build
    if code.count("(") != code.count(")"):
        return False
    for k in range(index - 1, -1, -1):
        previous = "".join(c if ok else " " for c, ok in zip(lines[k], masks[k])).strip()
        if previous:
            return previous[-1] in ";{}:" or previous.startswith("else")
        if lines[k].strip() and not lines[k].strip().startswith("//"):
            return False  # a masked statement or a literal goes on
    return False


def mutable_lines(path):
    with open(path, encoding="utf-8") as f:
        text = f.read()
    mask = code_mask(text)
    lines, masks, start = [], [], 0
    for line in text.split("\n"):
        lines.append(line)
        masks.append(mask[start:start + len(line)])
        start += len(line) + 1
    result = []
    for index, line in enumerate(lines):
        if not any(masks[index]) or not line.strip():
            continue
        mutations = line_mutations(line, masks[index])
        if droppable(lines, masks, index):
            mutations.append(("", "drop"))
        if mutations:
            result.append((index + 1, line, mutations))
    return result


def library_sources(root):
    for folder in FOLDERS:
        directory = os.path.join(root, folder)
        for name in sorted(os.listdir(directory)):
            if name.endswith(".cc"):
                yield f"{folder}/{name}"


def draw(root, seed, count):
    pool = []
    for source in library_sources(root):
        for number, line, mutations in mutable_lines(os.path.join(root, source)):
            pool.append((source, number, line, mutations))
    rng = random.Random(seed)
    picked = rng.sample(pool, min(count, len(pool)))
    mutants = []
    for i, (source, number, line, mutations) in enumerate(picked, 1):
        mutated, _ = rng.choice(mutations)
        mutants.append({"id": f"m{i:03d}", "file": source, "line": str(number),
                        "original": line, "mutated": mutated})
    return mutants, len(pool)


# ----- Mutant lists -------------------------------------------------------------

def read_mutants(path):
    mutants = []
    with open(path, encoding="utf-8") as f:
        for raw in f:
            raw = raw.rstrip("\n")
            if not raw or raw.startswith("#"):
                continue
            fields = raw.split("\t")
            if fields[0] == "id":
                header = fields
                continue
            mutants.append(dict(zip(header, fields + [""] * (len(header) - len(fields)))))
    return mutants


def write_mutants(stream, mutants, columns=COLUMNS):
    stream.write("\t".join(columns) + "\n")
    for m in mutants:
        stream.write(format_row(m, columns))


def format_row(m, columns):
    for value in m.values():
        if "\t" in value or "\n" in value:
            raise ValueError(f"mutant {m['id']} holds a tab or newline")
    return "\t".join(m.get(c, "") for c in columns) + "\n"


def locate(lines, mutant):
    """Index of the line to mutate in `lines`, or None."""
    wanted = mutant["original"].strip()
    number = int(mutant["line"]) - 1
    if 0 <= number < len(lines) and lines[number].strip() == wanted:
        return number
    same = [i for i, line in enumerate(lines) if line.strip() == wanted]
    if not same:
        return None
    return min(same, key=lambda i: abs(i - number))


def mutated_line(line, mutant):
    if mutant["mutated"] == "":
        return ""
    indent = line[:len(line) - len(line.lstrip())]
    return indent + mutant["mutated"].strip()


# ----- Building and running -------------------------------------------------------

def sync_tree(source, copy):
    """Makes `copy` hold the files of `source` (without build/ and .git/),
    touching only files whose content differs, so builds stay incremental."""
    skip = {"build", ".git"}
    wanted = set()
    for directory, subdirs, files in os.walk(source):
        relative = os.path.relpath(directory, source)
        if relative == ".":
            subdirs[:] = [d for d in subdirs if d not in skip]
        for name in files:
            path = os.path.normpath(os.path.join(relative, name))
            wanted.add(path)
            target = os.path.join(copy, path)
            if not os.path.exists(target) or not filecmp.cmp(os.path.join(directory, name),
                                                             target, shallow=False):
                os.makedirs(os.path.dirname(target), exist_ok=True)
                shutil.copyfile(os.path.join(directory, name), target)
    for directory, _, files in os.walk(copy):
        for name in files:
            path = os.path.normpath(os.path.relpath(os.path.join(directory, name), copy))
            if path not in wanted:
                os.remove(os.path.join(directory, name))


def object_path(build_dir, source):
    return os.path.join(build_dir, "CMakeFiles", "velmor.dir", source + ".o")


def save_object(build_dir, source, logs):
    """Keeps the unmutated object of `source` once, to put back after a mutant."""
    saved = os.path.join(logs, "objects", source + ".o")
    if not os.path.exists(saved):
        os.makedirs(os.path.dirname(saved), exist_ok=True)
        shutil.copy2(object_path(build_dir, source), saved)


def restore(path, text, stat, build_dir, source, logs):
    """Puts the source back with its old times and the unmutated object back,
    so the next build recompiles nothing for it; the library archive is
    removed so that it is assembled again from the unmutated objects."""
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)
    os.utime(path, ns=(stat.st_atime_ns, stat.st_mtime_ns))
    saved = os.path.join(logs, "objects", source + ".o")
    shutil.copy2(saved, object_path(build_dir, source))
    library = os.path.join(build_dir, "libvelmor.a")
    if os.path.exists(library):
        os.remove(library)


def build(build_dir, jobs, log_path, targets=()):
    command = ["cmake", "--build", build_dir, "-j", str(jobs)]
    if targets:
        command += ["--target", *targets]
    with open(log_path, "a") as log:
        return subprocess.run(command, stdout=log, stderr=subprocess.STDOUT).returncode == 0


def test_programs(build_dir):
    directory = os.path.join(build_dir, "tests")
    return sorted(os.path.join(directory, name) for name in os.listdir(directory)
                  if name.endswith("_tests") and os.access(os.path.join(directory, name), os.X_OK))


FAILED_TEST = re.compile(r"^\[  FAILED  \] ([^\s,]+)", re.M)


def run_suite(programs, timeouts, jobs, cwd):
    """Runs the test programs, `jobs` at a time, each stopping at its first
    failure; stops everything at the first failing program. Returns None
    when all pass, else a description of the failure."""
    pending = list(programs)
    running = {}
    failure = None
    while (pending or running) and failure is None:
        while pending and len(running) < jobs:
            program = pending.pop(0)
            out = open(os.path.join(cwd, os.path.basename(program) + ".log"), "w+")
            process = subprocess.Popen([program, "--gtest_fail_fast", "--gtest_brief=1"],
                                       stdout=out, stderr=subprocess.STDOUT, cwd=cwd,
                                       start_new_session=True)
            running[process] = (program, out, time.monotonic())
        time.sleep(0.05)
        for process in list(running):
            program, out, started = running[process]
            code = process.poll()
            if code is None and time.monotonic() - started > timeouts[program]:
                kill_group(process)
                failure = f"timeout:{os.path.basename(program)}"
            elif code is not None:
                del running[process]
                if code != 0:
                    out.seek(0)
                    failed = FAILED_TEST.search(out.read())
                    name = failed.group(1) if failed else f"exit {code}"
                    # A failure that does not come back when the test is run
                    # again alone is a timing accident of a loaded machine,
                    # not the mutant's doing.
                    if confirmed(program, failed.group(1) if failed else None, timeouts, cwd):
                        failure = f"{os.path.basename(program)}:{name}"
                    else:
                        print(f"  ignored a failure that did not repeat: {name}", flush=True)
                out.close()
    for process, (_, out, _) in running.items():
        kill_group(process)
        out.close()
    return failure


def confirmed(program, test, timeouts, cwd):
    command = [program, "--gtest_brief=1"] + ([f"--gtest_filter={test}"] if test else [])
    try:
        return subprocess.run(command, cwd=cwd, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=timeouts[program]).returncode != 0
    except subprocess.TimeoutExpired:
        return True


def kill_group(process):
    try:
        os.killpg(process.pid, 9)
    except ProcessLookupError:
        pass
    process.wait()


def own_program(source):
    """The test program of the folder `source` is in."""
    return source.split("/")[0].replace("-", "_") + "_tests"


def run(args):
    tree = os.path.abspath(args.tree)
    work = os.path.abspath(args.work or os.path.join(tree, "build", "mutation"))
    src, build_dir = os.path.join(work, "src"), os.path.join(work, "build")
    if args.in_place:
        # The tree's own sources and an existing build folder of it: nothing
        # to copy or configure; each mutated line is put back afterwards.
        src, build_dir = tree, os.path.abspath(args.in_place)
    logs = os.path.join(work, "logs")
    os.makedirs(logs, exist_ok=True)
    mutants = read_mutants(args.mutants)
    done = {}
    if args.resume and os.path.exists(args.results):
        done = {m["id"]: m for m in read_mutants(args.results)}

    os.makedirs(src, exist_ok=True)
    if args.in_place:
        print(f"mutating {tree} in place, building in {build_dir}", flush=True)
    elif args.revision:
        # The tree as committed at that revision, whatever the working tree holds.
        exported = os.path.join(work, "export")
        shutil.rmtree(exported, ignore_errors=True)
        os.makedirs(exported)
        archive = subprocess.run(["git", "-C", tree, "archive", args.revision], check=True,
                                 stdout=subprocess.PIPE).stdout
        subprocess.run(["tar", "-x", "-C", exported], input=archive, check=True)
        print(f"copying {tree} at {args.revision} to {src}", flush=True)
        sync_tree(exported, src)
        shutil.rmtree(exported)
    else:
        print(f"copying {tree} to {src}", flush=True)
        sync_tree(tree, src)
    if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
        subprocess.run(["cmake", "-S", src, "-B", build_dir, "-DCMAKE_BUILD_TYPE=Release",
                        "-DVELMOR_BUILD_BENCHMARKS=OFF", "-DVELMOR_WERROR=OFF",
                        "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"],
                       check=True, stdout=subprocess.DEVNULL)
    print("building the unmutated tree", flush=True)
    if not build(build_dir, args.jobs, os.path.join(logs, "build.log")):
        sys.exit(f"the unmutated tree does not build; see {logs}/build.log")
    programs = test_programs(build_dir)
    cwd = os.path.join(build_dir, "tests")
    timeouts = {}
    for program in programs:
        started = time.monotonic()
        failure = run_suite([program], {program: 3600}, 1, cwd)
        if failure:
            sys.exit(f"the unmutated suite fails twice: {failure}")
        timeouts[program] = args.timeout_factor * (time.monotonic() - started) + 60
        print(f"  {os.path.basename(program)}: {time.monotonic() - started:.1f} s", flush=True)

    mode = "a" if done else "w"
    assessed = sum(1 for m in done.values() if m["status"] in ("killed", "survived"))
    sample = [m for m in done.values() if m["status"] in ("killed", "survived")]
    with open(args.results, mode, encoding="utf-8") as results:
        if not done:
            results.write("\t".join(RESULT_COLUMNS) + "\n")
        for mutant in mutants:
            if args.limit and assessed >= args.limit:
                break
            if mutant["id"] in done:
                continue
            outcome = dict((c, mutant[c]) for c in COLUMNS)
            outcome.update(status="", seconds="0", detail="")
            path = os.path.join(src, mutant["file"])
            started = time.monotonic()
            if not os.path.exists(path):
                outcome["status"] = "not-applicable"
            else:
                with open(path, encoding="utf-8") as f:
                    original_text = f.read()
                stat = os.stat(path)
                save_object(build_dir, mutant["file"], logs)
                lines = original_text.split("\n")
                index = locate(lines, mutant)
                if index is None:
                    outcome["status"] = "not-applicable"
                else:
                    lines[index] = mutated_line(lines[index], mutant)
                    outcome["line"] = str(index + 1)
                    try:
                        with open(path, "w", encoding="utf-8") as f:
                            f.write("\n".join(lines))
                        log = os.path.join(logs, f"{mutant['id']}.build.log")
                        failure = None
                        # The mutated folder's own test program first: it
                        # usually fails, and then nothing else need be linked.
                        own = [p for p in programs
                               if os.path.basename(p) == own_program(mutant["file"])]
                        if not build(build_dir, args.jobs, log, [os.path.basename(p) for p in own]):
                            outcome["status"] = "uncompilable"
                        else:
                            failure = run_suite(own, timeouts, args.jobs, cwd)
                            if failure is None and not build(build_dir, args.jobs, log):
                                outcome["status"] = "uncompilable"
                            elif failure is None:
                                rest = [p for p in programs if p not in own]
                                failure = run_suite(rest, timeouts, args.jobs, cwd)
                        if outcome["status"] != "uncompilable":
                            outcome["status"] = "killed" if failure else "survived"
                            outcome["detail"] = failure or ""
                    finally:
                        restore(path, original_text, stat, build_dir, mutant["file"], logs)
            outcome["seconds"] = f"{time.monotonic() - started:.0f}"
            results.write(format_row(outcome, RESULT_COLUMNS))
            results.flush()
            if outcome["status"] in ("killed", "survived"):
                assessed += 1
                sample.append(outcome)
            print(f"{mutant['id']} {outcome['status']:14} {outcome['seconds']:>4}s "
                  f"{mutant['file']}:{outcome['line']} {outcome['detail']}", flush=True)
    # Leave the copy unmutated and built for the next run.
    build(build_dir, args.jobs, os.path.join(logs, "build.log"))
    if args.sample_out:
        with open(args.sample_out, "w", encoding="utf-8") as f:
            f.write(f"# {len(sample)} mutants that build, drawn from {args.mutants}\n")
            write_mutants(f, sample)
    summarize(args.results)


def summarize(path):
    results = read_mutants(path)
    counts = {}
    for m in results:
        counts[m["status"]] = counts.get(m["status"], 0) + 1
    killed, survived = counts.get("killed", 0), counts.get("survived", 0)
    print(f"{path}: killed {killed} of {killed + survived} "
          + ", ".join(f"{k} {v}" for k, v in sorted(counts.items())))
    for m in results:
        if m["status"] == "survived":
            print(f"  survived {m['id']} {m['file']}:{m['line']}: {m['original'].strip()}  ->  "
                  f"{m['mutated'].strip() or '(dropped)'}")


def applicable(tree, path):
    """The mutants of a list whose original line is still in `tree`."""
    kept = []
    for mutant in read_mutants(path):
        source = os.path.join(tree, mutant["file"])
        if os.path.exists(source):
            with open(source, encoding="utf-8") as f:
                if locate(f.read().split("\n"), mutant) is not None:
                    kept.append({c: mutant[c] for c in COLUMNS})
    return kept


def compare(before_path, after_path):
    before = {m["id"]: m for m in read_mutants(before_path)}
    after = {m["id"]: m for m in read_mutants(after_path)}
    for key, m in before.items():
        if m["status"] == "killed" and after.get(key, {}).get("status") != "killed":
            print(f"{key} killed before ({m['detail']}), now "
                  f"{after.get(key, {}).get('status', 'missing')}: {m['file']}:{m['line']}: "
                  f"{m['original'].strip()}  ->  {m['mutated'].strip() or '(dropped)'}")
    summarize(before_path)
    summarize(after_path)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = parser.add_subparsers(dest="command", required=True)
    p = commands.add_parser("draw", help="draw mutants with a seed; the list goes to stdout")
    p.add_argument("--tree", default=".")
    p.add_argument("--seed", type=int, required=True)
    p.add_argument("--count", type=int, default=100)
    p = commands.add_parser("run", help="run the suite on each mutant of a list")
    p.add_argument("--tree", default=".", help="tree to mutate (default: the current folder)")
    p.add_argument("--revision", help="mutate the tree as committed at this git revision")
    p.add_argument("--mutants", required=True, help="mutant list (or an earlier results file)")
    p.add_argument("--results", required=True, help="results file to write")
    p.add_argument("--limit", type=int, default=0, help="stop after this many mutants built")
    p.add_argument("--sample-out", help="also write the mutants that built as a list")
    p.add_argument("--work", help="scratch folder (default: <tree>/build/mutation)")
    p.add_argument("--in-place", metavar="BUILD_DIR",
                   help="mutate the tree itself and build in this configured build folder of it")
    p.add_argument("--jobs", type=int, default=2)
    p.add_argument("--timeout-factor", type=float, default=5.0,
                   help="a test program times out after factor x its unmutated time + 60 s")
    p.add_argument("--resume", action="store_true", help="skip mutants already in --results")
    p = commands.add_parser("summary", help="counts of a results file")
    p.add_argument("results")
    p = commands.add_parser("applicable", help="the mutants of a list that apply to a tree")
    p.add_argument("--tree", default=".")
    p.add_argument("mutants")
    p = commands.add_parser("compare", help="mutants killed in one results file but not another")
    p.add_argument("before")
    p.add_argument("after")
    args = parser.parse_args()
    if args.command == "draw":
        mutants, pool = draw(os.path.abspath(args.tree), args.seed, args.count)
        sys.stdout.write(f"# seed {args.seed}, {len(mutants)} of {pool} mutable lines\n")
        write_mutants(sys.stdout, mutants)
    elif args.command == "run":
        run(args)
    elif args.command == "applicable":
        kept = applicable(os.path.abspath(args.tree), args.mutants)
        sys.stdout.write(f"# {len(kept)} mutants of {args.mutants} whose line is in {args.tree}\n")
        write_mutants(sys.stdout, kept)
    elif args.command == "summary":
        summarize(args.results)
    else:
        compare(args.before, args.after)


if __name__ == "__main__":
    main()
