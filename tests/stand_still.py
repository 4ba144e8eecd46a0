#!/usr/bin/env python3
"""Runs a test program on a machine that stands still for half a second now and then.

    tests/stand_still.py build/release/tests/server/server_requests_test [ARGUMENTS...]

Stops and continues the program with all processes that it starts, but for those that begin a session of their own. A test
that fails only so waits for a time, or does not go on with a call that was interrupted. Tests that stop a process
themselves fail without being wrong.
"""

import os
import random
import signal
import subprocess
import sys
import time


def run(command):
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, start_new_session=True) as program:
        while True:
            time.sleep(random.uniform(0.01, 0.8))
            if program.poll() is not None:
                return program.returncode
            os.killpg(program.pid, signal.SIGSTOP)
            time.sleep(random.uniform(0.3, 0.6))
            os.killpg(program.pid, signal.SIGCONT)


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    result = run(sys.argv[1:])
    # Ended by a signal, as a shell tells it.
    sys.exit(128 - result if result < 0 else result)
