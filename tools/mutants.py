#!/usr/bin/env python3
"""Faults injected on purpose, to show which of them the test suite notices.

    tools/mutants.py list
    tools/mutants.py apply NAME DIR
    tools/mutants.py run DIR [NAMES...] [--scratch S] [--out FILE] [--rev COMMIT]

Each fault replaces one piece of text that occurs exactly once in its file, so a fault never
lands on the wrong line after an edit; when the text is gone the fault is reported, not guessed.
`run` copies the tracked sources of DIR (as committed at COMMIT, when given) into a scratch
tree, configures one build there and, per fault: applies it, then builds and runs one test program after another (the one that
caught the fault last time first, then those of its own area) until one fails, and puts the
file back. Only the program about to run is linked, so a caught fault costs little. A fault is
KILLED when a test fails or hangs, SURVIVED when every test passes, BROKEN-BUILD when it does
not compile (the fault's text then needs a better replacement).
"""

import json
import re
import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

# name, file, text found exactly once, replacement, what a user would see go wrong
MUTANTS = [
    # errors
    ("errors-signed-number", "src/errors/report.cpp",
     'return QStringLiteral("- ") + QString::number(-value);',
     'return QStringLiteral("- ") + QString::number(value);',
     "the error number relative to a base prints as '- -5'"),
    ("errors-report-twice", "src/errors/hunterr.cpp",
     "if (kept.source == ReportSource) {",
     "if (kept.source == ReportSource && false) {",
     "every procedure on the way up starts a new report instead of adding its line"),
    # names
    ("names-pipe-kept", "src/names/filenames.cpp",
     "'<', '>', '|'};", "'<', '>'};",
     "a '|' in a title stays in the file name"),
    ("names-first-dot", "src/names/filenames.cpp",
     "const qsizetype point = name.lastIndexOf(QLatin1Char('.'));",
     "const qsizetype point = name.indexOf(QLatin1Char('.'));",
     "the extension of 'a.b.pdf' is taken as '.b.pdf'"),
    ("names-dotdot-name", "src/names/filenames.cpp",
     'cleaned == QLatin1String(".") || cleaned == QLatin1String("..")',
     'cleaned == QLatin1String(".")',
     "a folder called '..' is not refused as a name"),
    ("names-title-trimmed", "src/names/filenames.cpp",
     "return name; // leading and trailing blanks belong to the title",
     "return trimBlanks(name);",
     "a document title loses its leading and trailing blanks"),
    # repository
    ("repo-master-catalogue", "src/repository/connectionstring.cpp",
     'QStringLiteral(";Initial Catalog = zar_Master")',
     'QStringLiteral(";Initial Catalog=zar_Master")',
     "the catalogue connection string changes its text"),
    ("repo-quotes-not-doubled", "src/repository/connectionstring.cpp",
     "s.replace(u'\\'', QStringLiteral(\"''\"));",
     "s.replace(u'\\'', QStringLiteral(\"'\"));",
     "a quote in a user name is not doubled"),
    ("repo-parse-doubled-quote", "src/repository/connectionstring.cpp",
     "inner += q;", "",
     "a doubled quote inside a quoted value is dropped"),
    ("repo-live-documents-table", "src/repository/statements.cpp",
     '" from zar_file a, zar_fileLive b "',
     '" from zar_file a, zar_fileArchived b "',
     "a live folder lists its archived documents"),
    ("repo-date-seconds", "src/repository/statements.cpp",
     "RIGHT('0'+CAST(DATEPART(ss,", "RIGHT('0'+CAST(DATEPART(mi,",
     "document dates carry the minutes as seconds"),
    ("repo-blob-offset", "src/repository/sqliteblob.cpp",
     "sqlite3_blob_read(m_blob, buffer, n, int(m_at))",
     "sqlite3_blob_read(m_blob, buffer, n, 0)",
     "every chunk of a large embedded document is read from its start"),
    # tree
    ("tree-untick-sticks", "src/tree/treeprocs.cpp",
     "if (node->parent->checked)", "if (false && node->parent->checked)",
     "a child under a ticked parent can be unticked"),
    ("tree-root-tick-sticks", "src/tree/treeprocs.cpp",
     "if (folderIdOfKey(required(node)->key) == 1) {",
     "if (folderIdOfKey(required(node)->key) == 0) {",
     "the repository root keeps its tick"),
    ("tree-untick-keeps-children", "src/tree/treeprocs.cpp",
     "else\n                DeSelectAllChild(changed->index);", "else\n                {}",
     "unticking a folder leaves its loaded sub-folders ticked"),
    ("tree-children-not-inherit", "src/tree/treeprocs.cpp",
     "if (clicked->checked)", "if (!clicked->checked)",
     "children loaded by a click take the opposite of the parent's tick"),
    # session
    ("session-archive-code", "src/session/signin.cpp",
     'if (code == u"A")', 'if (code == u"a")',
     "an archive database is shown without a type"),
    ("session-archive-flag", "src/session/signin.cpp",
     '} else if (type == u"ARCHIVE") {', '} else if (type == u"Archive") {',
     "an archive database is read as a live one"),
    # export
    ("export-update-size", "src/export/documentfetcher.cpp",
     "if (onDiskSize != size)", "if (onDiskSize != size && false)",
     "--update keeps a file whose size changed while its date did not"),
    ("export-update-date", "src/export/documentfetcher.cpp",
     "when.toMSecsSinceEpoch() != onDisk.toMSecsSinceEpoch()",
     "when.date() != onDisk.date()",
     "--update keeps a file dated on the right day but at another time"),
    ("export-date-seconds-field", "src/export/filetimes.cpp",
     "field(11, 2), field(13, 2));", "field(11, 2), field(12, 2));",
     "a document date's seconds are read one digit early"),
    ("export-log-line", "src/export/exportlog.cpp",
     'QStringLiteral(" , File Location: ")', 'QStringLiteral(", File Location: ")',
     "the export log's document line loses a blank"),
    ("export-disk-prefix", "src/export/exportdisk.cpp",
     "if (m_destination.isEmpty() || !path.startsWith(m_prefix) || path.size() == m_prefix.size())",
     "if (m_destination.isEmpty() || path.size() == m_prefix.size())",
     "the disk layer accepts a path outside the destination"),
    ("export-disk-writes-from-kept", "src/export/openfolders.cpp",
     "DirRef dir = fromKept ? deepestOpen(names, depth, &reached) : DirRef();",
     "DirRef dir = deepestOpen(names, depth, &reached);",
     "the disk layer writes through a directory handle kept from before"),
    ("export-disk-forget-none", "src/export/exportdisk.cpp",
     "    m_folders.forget(names);", "",
     "a directory the run removes stays among the ones kept open"),
    ("export-settle-unmarked", "src/export/documentfetcher.cpp",
     "job.notAsListed = !kept.keptDateError;", "",
     "a file the walk found changed (and dated) is checked again by the worker"),
    ("export-verify-dotdot", "src/export/verify.cpp",
     '|| name == QLatin1String(".."))\n            return false;',
     ')\n            return false;',
     "verify follows a report path out of the destination"),
    ("export-verify-date", "src/export/verify.cpp",
     "if (record.date.isValid() && onDisk.toMSecsSinceEpoch()",
     "if (!record.date.isValid() && onDisk.toMSecsSinceEpoch()",
     "verify never notices a file's date"),
    # demo
    ("demo-missing-bytes", "src/demo/demorepository.cpp",
     "if (row.lifecycle != A || row.id == kMissingBytes)",
     "if (row.lifecycle != A)",
     "the demo's archived document without bytes gets bytes"),
    ("demo-actual-hour", "src/demo/demorepository.cpp",
     "d.actualDate = dateText(actual, 9 + row.id % 8,",
     "d.actualDate = dateText(actual, 8 + row.id % 8,",
     "the demo's document dates move by an hour"),
    ("demo-pdf-offset", "src/demo/samplefiles.cpp",
     "offsets << pdf.size();", "offsets << pdf.size() + 1;",
     "the demo's PDF files point their readers one byte past each object"),
    # cli
    ("cli-jobs-bound", "src/cli/exportcommand.cpp",
     "1, kMaxJobs, &request->jobs", "1, kMaxJobs + 1, &request->jobs",
     "--jobs 65 is accepted"),
    ("cli-depth-zero", "src/cli/listings.cpp",
     "if (!ok || depth < 0)", "if (!ok || depth < 1)",
     "tree --depth 0 is refused"),
    ("cli-verify-exit", "src/cli/verifycommand.cpp",
     "const int status = counts.mismatches > 0 ? ExitItemsFailed : ExitDone;",
     "const int status = counts.mismatches > 1 ? ExitItemsFailed : ExitDone;",
     "verify with one mismatch exits as if all matched"),
    # app
    ("app-password-case", "src/app/frmsendtofolder.cpp",
     "m_TxtLoginPsw->text().toUpper() != kToolPassword.toUpper()",
     "m_TxtLoginPsw->text() != kToolPassword",
     "the tool password becomes case-sensitive"),
    ("app-destination-question", "src/app/frmsendtofolder.cpp",
     '"\\" as destination folder, do you want to continue?..."',
     '"\\" as destination folder, do you want to continue?"',
     "the question before a copy changes its text"),
    ("app-cancel-ignored", "src/app/windowcopy.cpp",
     "m_copy->stop.request(1);", "(void)0;",
     "Cancel greys out but the copy runs on to its end"),
    ("export-unfinished-dropped", "src/export/exportlog.cpp",
     "m_result.unfinished << repositoryPathOf(node);", "(void)node;",
     "a cancelled copy says every ticked folder was finished"),
    ("repo-retry-never", "src/repository/connection.cpp",
     "if (!cn.lastFailureBroken() || !cn.reopenAfterBreak(&tried))", "if (true)",
     "a statement whose connection broke is never sent again"),
    ("export-stream-restart-never", "src/export/documentfetcher.cpp",
     "if (!streamFailed || !o.written.isEmpty() || o.abandoned || !cn.lastFailureBroken())", "if (true)",
     "a document whose stream broke is logged without a second try"),
    ("export-beneath-follows-links", "src/export/dirhandles.cpp",
     "how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;", "how.resolve = 0;",
     "a link standing for a directory deep in the destination is entered, and the run writes where it points"),
    ("export-documents-one-per-trip", "src/export/documentqueue.cpp",
     "constexpr size_t kDocumentsPerTrip = 4;", "constexpr size_t kDocumentsPerTrip = 1;",
     "across a network every document waits a round trip of its own again"),
    ("repo-batch-passed-over-kept", "src/repository/odbcserver.cpp",
     "for (int i = 0; q && i <= skipped; ++i) {", "for (int i = 0; q && i <= 0; ++i) {",
     "a document read from a batch after one that gave no date gets another statement's result"),
    # the SQL Server stand-in
    ("standin-textsize-ignored", "tools/sqlserver-standin/resultset.cpp",
     "b.truncate(textSize);", "(void)textSize;",
     "the stand-in sends whole images whatever TEXTSIZE says, so a client that forgot it passes"),
]

def find(name):
    for m in MUTANTS:
        if m[0] == name:
            return m
    sys.exit(f"no mutant called {name}")


def apply(mutant, tree):
    name, rel, old, new, _ = mutant
    path = Path(tree) / rel
    text = path.read_text()
    count = text.count(old)
    if count != 1:
        raise RuntimeError(f"{name}: the text is found {count} times in {rel}, not once")
    path.write_text(text.replace(old, new))
    return path, text


def sh(args, cwd=None, env=None, timeout=None, log=None):
    out = subprocess.run(args, cwd=cwd, env=env, timeout=timeout, stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True, errors="replace")
    if log is not None:
        log.write(out.stdout)
    return out.returncode


def build_env():
    env = dict(os.environ)
    ccache = Path("/work/ccache.env")
    if ccache.exists():
        for word in ccache.read_text().split():
            if "=" in word:
                key, value = word.split("=", 1)
                env[key] = value
    env["QT_QPA_PLATFORM"] = "offscreen"
    return env


def copy_sources(source, tree, rev=None):
    """The tracked files of source (as committed at rev, when given) into tree."""
    listing = subprocess.run(["git", "-C", source, "ls-tree", "-r", "-z", rev or "HEAD"], stdout=subprocess.PIPE,
                             check=True).stdout.decode().split("\0")
    for entry in filter(None, listing):
        mode, rel = entry.split(" ", 1)[0], entry.split("\t", 1)[1]
        if rev:
            data = subprocess.run(["git", "-C", source, "show", f"{rev}:{rel}"], stdout=subprocess.PIPE,
                                  check=True).stdout
        elif (Path(source) / rel).is_file():
            data = (Path(source) / rel).read_bytes()  # as it stands in the work tree
        else:
            continue
        dst = Path(tree) / rel
        if dst.exists() and dst.read_bytes() == data:
            continue  # an unchanged file keeps its time, so the build stays incremental
        dst.parent.mkdir(parents=True, exist_ok=True)
        dst.write_bytes(data)
        dst.chmod(0o755 if mode == "100755" else 0o644)


def test_names(build, env):
    out = subprocess.run(["ctest", "--test-dir", build, "-N"], env=env, stdout=subprocess.PIPE, text=True).stdout
    return [line.split(": ", 1)[1].strip() for line in out.splitlines() if re.match(r"\s*Test\s+#\d+: ", line)]


def order_for(mutant, tests, killers):
    """The test that caught this fault last time first, then its own area, the package last."""
    area = mutant[1].split("/")[1] if mutant[1].startswith("src/") else "wire"
    near = {"errors": "core", "names": "core", "repository": "core", "tree": "core", "session": "core",
            "export": "core", "demo": "core", "cli": "cli", "app": "gui", "wire": "wire"}[area]
    first = [t for t in tests if t == killers.get(mutant[0])]
    rank = {"core": 1, "cli": 2, "gui": 3, "wire": 4, "pkg": 5}
    rest = sorted((t for t in tests if t not in first),
                  key=lambda t: (0 if t.startswith(near + ".") else rank.get(t.split(".")[0], 9)))
    return first + rest


def run_tests(build, env, names, log):
    """Builds and runs the programs one by one; the first that fails or hangs, "" when all pass,
    None when a program does not build."""
    for name in names:
        # The package test packs the whole build (the compressed manual page included).
        targets = [] if name.startswith("pkg.") else ["--target", "parcelwise", "sqlserver-standin", name.split(".", 1)[1]]
        if sh(["cmake", "--build", build, "-j2"] + targets, env=env, log=log) != 0:
            return None
        try:
            code = sh(["ctest", "--test-dir", build, "-R", f"^{name.replace('.', '[.]')}$", "--timeout", "400"],
                      env=env, timeout=900, log=log)
        except subprocess.TimeoutExpired:
            code = 1
        if code != 0:
            return name
    return ""


def run(source, names, scratch, out_file, rev):
    scratch = Path(scratch).resolve()
    tree, build = scratch / "tree", scratch / "tree" / "build"
    env = build_env()
    copy_sources(source, tree, rev)
    chosen = [find(n) for n in names] if names else MUTANTS
    if not (build / "CMakeCache.txt").exists():
        sh(["cmake", "-S", tree, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
            "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"], env=env)
    tests = test_names(build, env)
    killers_file = scratch / "killers.json"
    killers = json.loads(killers_file.read_text()) if killers_file.exists() else {}

    results = []
    for mutant in chosen:
        name = mutant[0]
        began = time.time()
        try:
            path, original = apply(mutant, tree)
        except RuntimeError as e:
            results.append((name, "MISSING", str(e)))
            print(f"{name:28} MISSING  {e}", flush=True)
            continue
        try:
            with open(scratch / f"{name}.log", "w") as log:
                by = run_tests(build, env, order_for(mutant, tests, killers), log)
        finally:
            path.write_text(original)
        verdict = "BROKEN-BUILD" if by is None else "KILLED" if by else "SURVIVED"
        if by:
            killers[name] = by
            killers_file.write_text(json.dumps(killers, indent=1))
        results.append((name, verdict, by or ""))
        print(f"{name:28} {verdict:12} {by or ''}  ({time.time() - began:.0f} s)", flush=True)
        if out_file:
            write_results(out_file, results)


def write_results(out_file, results):
    killed = sum(1 for r in results if r[1] == "KILLED")
    counted = sum(1 for r in results if r[1] in ("KILLED", "SURVIVED"))
    lines = [f"{n:28} {v:12} {b}" for n, v, b in results] + [f"score: {killed} of {counted} killed"]
    Path(out_file).write_text("\n".join(lines) + "\n")


def main(argv):
    if len(argv) < 2 or argv[1] not in ("list", "apply", "run"):
        sys.exit(__doc__)
    if argv[1] == "list":
        for name, rel, _, _, why in MUTANTS:
            print(f"{name:28} {rel:42} {why}")
        return
    if argv[1] == "apply":
        if len(argv) != 4:
            sys.exit("usage: mutants.py apply NAME DIR")
        try:
            apply(find(argv[2]), argv[3])
        except RuntimeError as e:
            sys.exit(str(e))
        return
    args, options = [], {"--scratch": None, "--out": None, "--rev": None}
    rest = iter(argv[2:])
    for a in rest:
        if a in options:
            options[a] = next(rest)
        else:
            args.append(a)
    if not args:
        sys.exit("usage: mutants.py run DIR [NAMES...] [--scratch S] [--out FILE] [--rev COMMIT]")
    source = str(Path(args[0]).resolve())
    scratch = options["--scratch"] or str(Path(source) / "build-mutants")
    run(source, args[1:], scratch, options["--out"], options["--rev"])


if __name__ == "__main__":
    main(sys.argv)
