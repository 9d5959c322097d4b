#!/usr/bin/env python3
"""Plant single faults in src/ one at a time and see whether the test suite catches them.

usage: python3 scripts/mutate.py [options] [FAULT ...]

FAULT selects faults of scripts/mutations.txt by name, by 1-based index, by a range of indices
("3-7") or by a shell pattern ("fast-*"); none selects all of them. For each fault the script
replaces its text in its file (the text must occur exactly once), rebuilds the build directory
(Release, tests on, benchmark off), runs `ctest --stop-on-failure` and puts the file back, also
when interrupted. A fault is

  caught         the suite failed (the first failing test is named), or ran past the time limit
  survived       every test passed
  not compiled   the build failed (not counted in the score)
  not found      its text is missing or not unique in the file (not counted; fix the list)

and the score is caught / (caught + survived). The table is also written, tab-separated, to
BUILD_DIR/mutations.tsv.

options:
  --check           only check that every selected fault's text occurs exactly once
  --list            list the faults and exit
  --build-dir DIR   the build directory (default build-mut)
  --timeout S       the limit for one run of the suite, seconds (default 600; a hang is caught)
  --jobs N          parallel build and test jobs (default 2)
"""
import fnmatch
import os
import re
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
LIST = os.path.join(ROOT, 'scripts', 'mutations.txt')


class Fault:
    def __init__(self, index, name, path, what, find, replace):
        self.index, self.name, self.path, self.what = index, name, path, what
        self.find, self.replace = find, replace


def load_faults(path):
    """The faults of the list: a header '[name] file', a line saying what the fault does, the
    text's lines each after '- ' and the replacement's lines each after '+ ' (no '+' line: the
    text is deleted). Lines starting with '#' and blank lines between faults are comments."""
    faults, cur = [], None
    with open(path, encoding='utf-8') as fh:
        for number, raw in enumerate(fh, 1):
            line = raw.rstrip('\n')
            m = re.match(r'^\[([A-Za-z0-9_.-]+)\]\s+(\S+)\s*$', line)
            if m:
                cur = {'name': m.group(1), 'path': m.group(2), 'what': None, 'find': [],
                       'replace': [], 'line': number}
                faults.append(cur)
            elif cur is None or (not line.strip() and cur['find']) or line.startswith('#'):
                continue
            elif line.startswith('- ') or line == '-':
                cur['find'].append(line[2:])
            elif line.startswith('+ ') or line == '+':
                cur['replace'].append(line[2:])
            elif cur['what'] is None and line.strip():
                cur['what'] = line.strip()
            else:
                sys.exit('%s:%d: unexpected line: %s' % (path, number, line))
    out, names = [], set()
    for i, f in enumerate(faults, 1):
        if not f['find'] or f['what'] is None:
            sys.exit('%s:%d: fault %s needs a description and a text' % (path, f['line'], f['name']))
        if f['name'] in names:
            sys.exit('%s:%d: fault %s listed twice' % (path, f['line'], f['name']))
        names.add(f['name'])
        replace = '\n'.join(f['replace']) if f['replace'] else ''
        out.append(Fault(i, f['name'], f['path'], f['what'], '\n'.join(f['find']), replace))
    return out


def select(faults, args):
    if not args:
        return faults
    chosen = []
    for a in args:
        if re.fullmatch(r'\d+', a):
            picked = [f for f in faults if f.index == int(a)]
        elif re.fullmatch(r'\d+-\d+', a):
            lo, hi = map(int, a.split('-'))
            picked = [f for f in faults if lo <= f.index <= hi]
        else:
            picked = [f for f in faults if fnmatch.fnmatchcase(f.name, a)]
        if not picked:
            sys.exit('no fault matches ' + a)
        chosen += [f for f in picked if f not in chosen]
    return sorted(chosen, key=lambda f: f.index)


def occurrences(fault):
    with open(os.path.join(ROOT, fault.path), encoding='utf-8') as fh:
        return fh.read().count(fault.find)


class Interrupted(Exception):
    pass


def on_signal(signum, frame):
    raise Interrupted('signal %d' % signum)


def run(cmd, timeout, log):
    """Runs cmd in its own process group; returns (status, output), status None on timeout."""
    proc = subprocess.Popen(cmd, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            start_new_session=True, text=True, errors='replace')
    try:
        out, _ = proc.communicate(timeout=timeout)
        status = proc.returncode
    except subprocess.TimeoutExpired:
        status, out = None, ''
    finally:
        if proc.poll() is None:
            os.killpg(proc.pid, signal.SIGKILL)
            proc.communicate()
    if log:
        with open(log, 'w', encoding='utf-8') as fh:
            fh.write(out or '')
    return status, out or ''


def first_failure(output):
    m = re.search(r'The following tests FAILED:\s*\n\s*\d+\s*-\s*(\S+)', output)
    return m.group(1) if m else 'ctest failed'


def main(argv):
    args, opts = [], {'--build-dir': 'build-mut', '--timeout': '600', '--jobs': '2'}
    flags = set()
    it = iter(argv[1:])
    for a in it:
        if a in opts:
            opts[a] = next(it, None) or sys.exit(a + ' needs a value')
        elif a in ('--check', '--list'):
            flags.add(a)
        elif a in ('-h', '--help'):
            print(__doc__)
            return 0
        elif a.startswith('--'):
            sys.exit('unknown option ' + a)
        else:
            args.append(a)
    faults = select(load_faults(LIST), args)
    if '--list' in flags:
        for f in faults:
            print('%3d  %-28s %-32s %s' % (f.index, f.name, f.path, f.what))
        return 0

    bad = [(f, n) for f in faults for n in [occurrences(f)] if n != 1]
    for f, n in bad:
        print('%3d  %-28s not found: its text occurs %d times in %s' % (f.index, f.name, n, f.path))
    if '--check' in flags:
        print('%d of %d faults apply' % (len(faults) - len(bad), len(faults)))
        return 1 if bad else 0

    if subprocess.run(['git', 'diff', '--quiet', '--', 'src'], cwd=ROOT).returncode != 0:
        sys.exit('src/ has uncommitted changes: commit or stash them first (the script checks '
                 'with git that every fault is taken out again)')
    build = os.path.join(ROOT, opts['--build-dir'])
    jobs, limit = opts['--jobs'], float(opts['--timeout'])
    logs = os.path.join(build, 'mutation-logs')
    if not os.path.exists(os.path.join(build, 'CMakeCache.txt')):
        status, out = run(['cmake', '-S', '.', '-B', build, '-DCMAKE_BUILD_TYPE=Release',
                           '-DICTVCF_BUILD_TESTS=ON', '-DICTVCF_BUILD_BENCH=OFF'], 600, None)
        if status != 0:
            sys.exit('cmake failed:\n' + out)
    os.makedirs(logs, exist_ok=True)
    build_cmd = ['cmake', '--build', build, '-j', jobs]
    test_cmd = ['ctest', '--test-dir', build, '--stop-on-failure', '--timeout', '120', '-j', jobs]
    for s in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(s, on_signal)
    print('building and testing the unchanged sources ...', flush=True)
    if run(build_cmd, 3600, os.path.join(logs, 'baseline-build.log'))[0] != 0:
        sys.exit('the unchanged sources do not build: see ' + logs + '/baseline-build.log')
    if run(test_cmd, limit, os.path.join(logs, 'baseline-test.log'))[0] != 0:
        sys.exit('the suite fails without a fault: see ' + logs + '/baseline-test.log')

    results = []
    print('%3s  %-28s %-13s %6s  %s' % ('#', 'fault', 'result', 'time', 'detail'), flush=True)
    try:
        for f in faults:
            if occurrences(f) != 1:
                results.append((f, 'not found', 0.0, 'text not unique or missing'))
                continue
            path = os.path.join(ROOT, f.path)
            with open(path, encoding='utf-8') as fh:
                original = fh.read()
            start = time.time()
            try:
                with open(path, 'w', encoding='utf-8') as fh:
                    fh.write(original.replace(f.find, f.replace, 1))
                status, _ = run(build_cmd, 3600, os.path.join(logs, f.name + '-build.log'))
                if status != 0:
                    result, detail = 'not compiled', 'see mutation-logs/%s-build.log' % f.name
                else:
                    status, out = run(test_cmd, limit, os.path.join(logs, f.name + '-test.log'))
                    if status is None:
                        result, detail = 'caught', 'the suite ran past %g s' % limit
                    elif status != 0:
                        result, detail = 'caught', first_failure(out)
                    else:
                        result, detail = 'survived', '-'
            finally:
                with open(path, 'w', encoding='utf-8') as fh:
                    fh.write(original)
            results.append((f, result, time.time() - start, detail))
            print('%3d  %-28s %-13s %5.0fs  %s' % (f.index, f.name, result, time.time() - start,
                                                 detail), flush=True)
    except (KeyboardInterrupt, Interrupted) as e:
        print('interrupted (%s): every file is restored' % e, file=sys.stderr)
    finally:
        if subprocess.run(['git', 'diff', '--quiet', '--', 'src'], cwd=ROOT).returncode != 0:
            print('ERROR: src/ differs from the commit after restoring', file=sys.stderr)

    with open(os.path.join(build, 'mutations.tsv'), 'w', encoding='utf-8') as fh:
        fh.write('index\tname\tfile\tresult\tseconds\tdetail\n')
        for f, result, secs, detail in results:
            fh.write('%d\t%s\t%s\t%s\t%.0f\t%s\n' % (f.index, f.name, f.path, result, secs, detail))
    count = {k: sum(1 for r in results if r[1] == k)
             for k in ('caught', 'survived', 'not compiled', 'not found')}
    scored = count['caught'] + count['survived']
    print()
    print('score: %d of %d caught (%d not compiled, %d not found); survivors:'
          % (count['caught'], scored, count['not compiled'], count['not found']))
    for f, result, _, _ in results:
        if result == 'survived':
            print('  %3d  %-28s %s' % (f.index, f.name, f.what))
    return 0


if __name__ == '__main__':
    sys.exit(main(sys.argv))
