"""faults_test.py DEPGRAPH STATUS FAULTS WORKDIR [ALSO]

Stores an archive over an older one with each system call failing once, and with the process killed at each; FAULTS is
the library to preload, ALSO one that goes before it. The old archive stays or the new one is there, whole; the exit
status tells which; nothing else is left for long.
"""

import errno
import os
import shutil
import stat
import subprocess
import sys

SHORT, KILL = -1, -2


def main(depgraph, status, faults, directory, *also):
    shutil.rmtree(directory, ignore_errors=True)
    os.makedirs(directory)
    archive, log = os.path.join(directory, "archive"), directory + ".log"

    def store(fault="0 0", unnamed=True, target=archive):
        # By a path without a blank, at which the loader would split it.
        environment = dict(os.environ, LD_PRELOAD=":".join(also + ("./" + os.path.basename(faults),)), FAULT=fault,
                           FAULT_LOG=log)
        if not unnamed:
            environment["FAULT_NO_UNNAMED_FILES"] = "1"
        done = subprocess.run([depgraph, "store", status, target], env=environment, cwd=os.path.dirname(faults),
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        with open(log, encoding="ascii") as calls:
            return done, calls.read().split()

    done, _ = store()
    assert done.returncode == 0, done.stderr
    with open(archive, "rb") as file:
        new = file.read()
    runs = 0
    for unnamed in (True, False):
        calls = store(unnamed=unnamed)[1]
        for number, call in enumerate(calls, 1):
            others = [errno.EXDEV] if call in ("linkat", "renameat") else [SHORT] if call in ("fread", "write") else []
            for fault in [errno.EINTR, errno.EIO, errno.ENOSPC, KILL] + others:
                with open(archive, "wb") as file:
                    file.write(b"old")
                os.chmod(archive, 0o600)
                done, _ = store("%d %d" % (number, fault), unnamed)
                what = "call %d, %s, fault %d, unnamed %d: exit status %d, %r" % (number, call, fault, unnamed,
                                                                                done.returncode, done.stderr)
                with open(archive, "rb") as file:
                    found = file.read()
                assert found in (b"old", new), "%s: %d bytes" % (what, len(found))
                assert stat.S_IMODE(os.stat(archive).st_mode) == 0o600, what
                if fault == KILL:
                    assert done.returncode == -9, what
                    assert store(unnamed=unnamed)[0].returncode == 0, what
                else:
                    assert done.returncode in (0, 1), what
                    assert done.returncode == 1 or found == new, what
                    assert (done.returncode == 1) == done.stderr.startswith(b"depgraph: "), what
                    # What fails after the renaming: the flush of the folder, and the printing of the archive.
                    after = number > max(n for n, name in enumerate(calls, 1) if name == "renameat")
                    assert done.returncode == 0 or found == b"old" or after, what
                    assert fault != SHORT or call == "fread" or done.returncode == 0, what
                assert os.listdir(directory) == ["archive"], "%s: %r" % (what, os.listdir(directory))
                runs += 1
    done, _ = store(target="/dev/full")
    assert (done.returncode, done.stderr) == (1, b"depgraph: /dev/full: No space left on device\n"), done
    print("%d runs" % runs)


if len(sys.argv) < 5:
    sys.exit(__doc__)
main(*sys.argv[1:])
