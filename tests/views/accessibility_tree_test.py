#!/usr/bin/env python3
"""The desktop program as a screen reader meets it: through its accessibility tree over AT-SPI.

Runs the built program on a virtual X server (Xvfb) inside a session bus of its own
(dbus-run-session), with Qt's AT-SPI bridge switched on, and drives it by names, actions and
keys, as a user of a screen reader would: types a name rule into "Rule 1 value", presses
"Start" and reads "3 item(s) found" from the status bar; then opens the property picker
"Rule 1 property" through its action, finds its list in the tree, and chooses a property by
typing into the list's filter and pressing Enter. (What the widgets say and do is tested
offscreen by the program's own tests; this proves the tree a reader walks.)

Usage: accessibility_tree_test.py TROVIX TROVIX_EXTRACT
Exits 77 (skipped) when Xvfb, dbus-run-session or pyatspi is missing. Every process it starts
is ended by its id before it exits.
"""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SKIP = 77
# Marks every process of this run, so that teardown finds the bus services it caused to start.
MARK_NAME = "TROVIX_ATSPI_RUN"


def log(*args):
    print(*args, flush=True)


def python_with_pyatspi():
    """An interpreter that can import pyatspi (Debian's, when the first python3 is another)."""
    candidates = [sys.executable, "/usr/bin/python3"]
    for python in candidates:
        if python and os.path.exists(python):
            ok = subprocess.run([python, "-c", "import pyatspi"], stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL).returncode == 0
            if ok:
                return python
    return None


def processes_marked(mark):
    """Ids of the processes whose environment carries this run's mark."""
    found = []
    needle = ("%s=%s" % (MARK_NAME, mark)).encode()
    for entry in os.listdir("/proc"):
        if not entry.isdigit() or int(entry) == os.getpid():
            continue
        try:
            with open("/proc/%s/environ" % entry, "rb") as f:
                if needle in f.read().split(b"\0"):
                    found.append(int(entry))
        except OSError:
            pass
    return found


def end_processes(pids):
    for sig in (signal.SIGTERM, signal.SIGKILL):
        alive = []
        for pid in pids:
            try:
                os.kill(pid, sig)
                alive.append(pid)
            except ProcessLookupError:
                pass
        deadline = time.time() + 3
        while alive and time.time() < deadline:
            alive = [p for p in alive if os.path.exists("/proc/%d" % p) and not zombie(p)]
            time.sleep(0.05)
        if not alive:
            return
        pids = alive


def zombie(pid):
    try:
        with open("/proc/%d/stat" % pid) as f:
            return f.read().rsplit(")", 1)[1].split()[0] == "Z"
    except OSError:
        return True


def outer(trovix, extract):
    for tool in ("Xvfb", "dbus-run-session"):
        if not shutil.which(tool):
            log("SKIP: %s is not installed" % tool)
            return SKIP
    python = python_with_pyatspi()
    if not python:
        log("SKIP: pyatspi (python3-pyatspi) is not installed")
        return SKIP
    mark = "%d-%d" % (os.getpid(), int(time.time()))
    env = dict(os.environ)
    env[MARK_NAME] = mark
    read_end, write_end = os.pipe()
    xvfb = subprocess.Popen(["Xvfb", "-displayfd", str(write_end), "-screen", "0", "1280x1024x24",
                             "-nolisten", "tcp"], pass_fds=(write_end,), env=env,
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(write_end)
    code = 1
    try:
        display = b""
        deadline = time.time() + 15
        while not display.endswith(b"\n") and time.time() < deadline:
            chunk = os.read(read_end, 16)
            if not chunk:
                break
            display += chunk
        if not display.strip():
            log("FAIL: Xvfb gave no display")
            return 1
        env["DISPLAY"] = ":" + display.decode().strip()
        inner = subprocess.Popen(["dbus-run-session", "--", python, os.path.abspath(__file__), "--inner",
                                  os.path.abspath(trovix), os.path.abspath(extract)],
                                 env=env, start_new_session=True)
        try:
            code = inner.wait(timeout=55)
        except subprocess.TimeoutExpired:
            log("FAIL: the run took more than 55 s")
            os.killpg(inner.pid, signal.SIGKILL)
            inner.wait()
            code = 1
    finally:
        os.close(read_end)
        end_processes(processes_marked(mark))
        if xvfb.poll() is None:
            xvfb.terminate()
            try:
                xvfb.wait(timeout=5)
            except subprocess.TimeoutExpired:
                xvfb.kill()
                xvfb.wait()
    return code


class Failure(Exception):
    pass


def inner(trovix, extract):
    import pyatspi

    work = tempfile.mkdtemp(prefix="trovix-atspi-")
    app_process = None
    try:
        for sub in ("config", "cache", "data", "run"):
            os.makedirs(os.path.join(work, sub), mode=0o700)
        docs = os.path.join(work, "docs")
        os.makedirs(docs)
        for name in ("a.txt", "b.txt", "c.txt"):
            with open(os.path.join(docs, name), "w") as f:
                f.write("plain words\n")

        env = dict(os.environ)
        env.update({
            "QT_QPA_PLATFORM": "xcb",
            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
            "QT_ACCESSIBILITY": "1",
            "XDG_CONFIG_HOME": os.path.join(work, "config"),
            "XDG_CACHE_HOME": os.path.join(work, "cache"),
            "XDG_DATA_HOME": os.path.join(work, "data"),
            "XDG_RUNTIME_DIR": os.path.join(work, "run"),
            "TROVIX_EXTRACT": extract,
        })
        # A program that could not reach the fresh X server ends at once; it is started again,
        # twice at most, rather than failing the run on the server's start-up under load.
        for attempt in range(3):
            app_process = subprocess.Popen([trovix, "/P", "/F", "/I:" + os.path.join(work, "trovix.ini"), docs],
                                           env=env, cwd=work)
            try:
                app_process.wait(timeout=3)
            except subprocess.TimeoutExpired:
                break
            log("the program ended at start with %s; starting it again" % app_process.returncode)
            time.sleep(1)
        drive(pyatspi, app_process)
        log("PASS")
        return 0
    except Failure as failure:
        log("FAIL:", failure)
        return 1
    finally:
        if app_process is not None and app_process.poll() is None:
            app_process.send_signal(signal.SIGTERM)
            try:
                app_process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                app_process.kill()
                app_process.wait()
        shutil.rmtree(work, ignore_errors=True)


def wait_for(what, probe, timeout=15.0, step=0.1):
    deadline = time.time() + timeout
    while time.time() < deadline:
        try:
            value = probe()
        except Exception:  # the tree changes under us: a node may go while it is read
            value = None
        if value:
            return value
        time.sleep(step)
    raise Failure("timed out waiting for " + what)


def children(node):
    try:
        return [node.getChildAtIndex(i) for i in range(node.childCount)]
    except Exception:
        return []


def find(node, predicate, skip_roles=()):
    """The first node under `node` (breadth first) for which `predicate` holds."""
    queue = [node]
    while queue:
        current = queue.pop(0)
        if current is None:
            continue
        try:
            if predicate(current):
                return current
            if current.getRole() in skip_roles:
                continue
        except Exception:
            continue
        queue.extend(children(current))
    return None


def named(name, role=None):
    def predicate(node):
        return node.name == name and (role is None or node.getRole() == role)
    return predicate


def editable(name):
    def predicate(node):
        if node.name != name:
            return False
        try:
            node.queryEditableText()
            return True
        except NotImplementedError:
            return False
    return predicate


def do_action(node, *names):
    action = node.queryAction()
    available = [action.getName(i) for i in range(action.nActions)]
    for i, name in enumerate(available):
        if name.lower() in names:
            action.doAction(i)
            return
    raise Failure("%s offers no action %s (only %s)" % (node.name, names, available))


def drive(pyatspi, app_process):
    lists = (pyatspi.ROLE_TABLE, pyatspi.ROLE_TREE_TABLE, pyatspi.ROLE_LIST)

    def application():
        desktop = pyatspi.Registry.getDesktop(0)
        for app in children(desktop):
            if app is not None and app.get_process_id() == app_process.pid:
                return app
        if app_process.poll() is not None:
            raise Failure("the program ended with %s" % app_process.returncode)
        return None

    app = wait_for("the program in the accessibility tree", application, timeout=25)
    window = wait_for("the main window", lambda: find(app, named("trovix", pyatspi.ROLE_FRAME)))

    def control(name, node=None, timeout=15.0):
        return wait_for('"%s"' % name, lambda: find(node or window, named(name), skip_roles=lists), timeout)

    def type_into(name, text, node=None):
        field = wait_for('the field "%s"' % name, lambda: find(node or window, editable(name), skip_roles=lists))
        field.queryEditableText().setTextContents(text)

    # A search typed and started through the tree; the count read from the status bar.
    type_into("Rule 1 value", "*.txt")
    do_action(control("Start"), "press")
    status = wait_for("the status text", lambda: find(
        window, lambda n: n.getRole() == pyatspi.ROLE_LABEL and n.name.endswith("item(s) found"), lists))
    if status.name != "3 item(s) found":
        raise Failure("status says %r" % status.name)

    # The property picker: its action opens the list, which is in the tree; twice, so that the
    # list is found again once it has closed.
    picker = control("Rule 1 property")
    for canonical_name, label in (("System.Size", "Size"), ("System.Search.Contents", "Contents")):
        do_action(picker, "press", "showmenu")
        popup = wait_for("the property list", lambda: find(picker, named("Property list")))
        tree = wait_for("the properties in the list", lambda: find(popup, named("Properties")))
        if tree.childCount < 2:
            raise Failure("the property list is empty")
        type_into("Property filter", canonical_name, popup)
        time.sleep(0.3)
        pyatspi.Registry.generateKeyboardEvent(36, None, pyatspi.KEY_PRESSRELEASE)  # Return
        wait_for("the picker to show %s" % label, lambda: picker.description == label)


def main():
    if len(sys.argv) >= 4 and sys.argv[1] == "--inner":
        return inner(sys.argv[2], sys.argv[3])
    if len(sys.argv) != 3:
        log(__doc__)
        return 2
    return outer(sys.argv[1], sys.argv[2])


if __name__ == "__main__":
    sys.exit(main())
