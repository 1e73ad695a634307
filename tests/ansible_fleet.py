#!/usr/bin/env python3
"""The Ansible collection morv.settings against a fleet of hosts on this
machine, with the morv-settings of the build.

    ansible_fleet.py --tool PATH --collections DIR fleet
        Runs playbooks with the module morv.settings.setting against an
        inventory of HOSTS hosts (ansible_connection=local, each with its
        own XDG_CONFIG_HOME and XDG_CONFIG_DIRS in a temporary folder, set
        through host variables and the play's environment): the first run
        changes every host and the files hold the values (read with
        plistlib); a second run changes nothing (changed=0 everywhere, files
        untouched); check mode reports what would change and writes nothing;
        diff mode shows the old and new values; read returns the kind and
        value; absent removes (and a second time has nothing to do); a bad
        value fails with the tool's message and changes nothing.
    ansible_fleet.py --tool PATH --collections DIR doc
        ansible-doc renders the module's documentation.

Everything Ansible and the tool write goes below one temporary folder:
HOME, ANSIBLE_HOME, ANSIBLE_CONFIG, the local and remote temporary folders
and every XDG folder point there. Exits 77 (a skip for CTest) when
ansible-core is not installed.
"""
import argparse
import json
import os
import plistlib
import re
import shutil
import subprocess
import sys
import tempfile

HOSTS = 20
FORKS = 5
SKIPPED = 77
SERVER = "MorvMediaServer"
PLAYER = "MorvPlayer"

# Every playbook's play: the fleet, each host with its own settings folders.
PLAY = """
- hosts: fleet
  gather_facts: false
  environment:
    XDG_CONFIG_HOME: "{{ xdg_home }}"
    XDG_CONFIG_DIRS: "{{ xdg_dirs }}"
  tasks:"""

# The task that sets the server's port.
PORT_TASK = """
    - name: The server's port
      morv.settings.setting:
        product: MorvMediaServer
        key: Network/HttpPort
        type: int
        value: %d"""

SITE = PLAY + PORT_TASK % 32400 + """
    - name: Where the installer put the server
      morv.settings.setting:
        product: MorvMediaServer
        installer: true
        key: InstallPath
        type: string
        value: "/opt/mms/{{ inventory_hostname }}"
    - name: The player's settings as a whole
      morv.settings.setting:
        product: MorvPlayer
        values:
          Name: "{{ inventory_hostname }}"
          Volume: 0.5
          Library:
            Scan: true
            Paths: ["/srv/media", "/srv/{{ inventory_hostname }}"]
        prune: true
"""

PORT = PLAY + PORT_TASK % 8080

# Changes the port, reads it and the install path back, then removes the
# port (twice: the second time there is nothing to remove).
CHANGE = PLAY + PORT_TASK % 8080 + """
    - name: Read the port
      morv.settings.setting:
        product: MorvMediaServer
        key: Network/HttpPort
        state: read
      register: port
    - name: Read the install path
      morv.settings.setting:
        product: MorvMediaServer
        installer: true
        key: InstallPath
        state: read
      register: install_path
    - name: No port setting
      morv.settings.setting:
        product: MorvMediaServer
        key: Network/HttpPort
        state: absent
    - name: No port setting, again
      morv.settings.setting:
        product: MorvMediaServer
        key: Network/HttpPort
        state: absent
      register: again
    - name: What was read, and what absent did
      ansible.builtin.assert:
        that:
          - port.kind == "integer"
          - port.value == 8080
          - port is not changed
          - install_path.kind == "string"
          - install_path.value == "/opt/mms/" + inventory_hostname
          - again is not changed
        success_msg: "READ {{ inventory_hostname }} {{ port.kind }} {{ port.value }} {{ install_path.value }}"
"""

BAD = PLAY + """
    - name: A port that is not a number
      morv.settings.setting:
        product: MorvMediaServer
        key: Network/HttpPort
        type: int
        value: eighty
      ignore_errors: true
    - name: A tree with data that is not base64
      morv.settings.setting:
        product: MorvPlayer
        values:
          Name: changed
          Cover: {"$data": 5}
      ignore_errors: true
"""

RECAP = re.compile(r"^(\S+)\s+:\s+ok=(\d+)\s+changed=(\d+)\s+unreachable=(\d+)\s+failed=(\d+)"
                   r"\s+skipped=\d+\s+rescued=\d+\s+ignored=(\d+)", re.MULTILINE)


class Fleet:
    def __init__(self, tool, collections, root):
        self.root = root
        self.hosts = ["host%02d" % n for n in range(1, HOSTS + 1)]
        self.failures = []
        with open(os.path.join(root, "inventory.ini"), "w") as inventory:
            inventory.write("[fleet]\n")
            for host in self.hosts:
                inventory.write("%s xdg_home=%s xdg_dirs=%s\n" %
                                (host, self.user_folder(host), self.machine_folder(host)))
            inventory.write("\n[fleet:vars]\nansible_connection=local\n"
                            "ansible_python_interpreter=/usr/bin/python3\n")
        with open(os.path.join(root, "ansible.cfg"), "w") as config:
            config.write("[defaults]\ninventory = %s\nforks = %d\nretry_files_enabled = False\n"
                         "nocolor = True\nlocal_tmp = %s\nremote_tmp = %s\n"
                         "[connection]\npipelining = True\n" %
                         (os.path.join(root, "inventory.ini"), FORKS,
                          os.path.join(root, "local-tmp"), os.path.join(root, "remote-tmp")))
        # The controller's own settings folders are in the temporary folder
        # too: a task that lost its environment would write there.
        self.environment = {
            "PATH": os.path.dirname(os.path.abspath(tool)) + os.pathsep + os.environ["PATH"],
            "HOME": os.path.join(root, "home"),
            "XDG_CONFIG_HOME": os.path.join(root, "controller", "config"),
            "XDG_CONFIG_DIRS": os.path.join(root, "controller", "xdg"),
            "ANSIBLE_HOME": os.path.join(root, "ansible-home"),
            "ANSIBLE_CONFIG": os.path.join(root, "ansible.cfg"),
            "ANSIBLE_LOCAL_TEMP": os.path.join(root, "local-tmp"),
            "ANSIBLE_REMOTE_TEMP": os.path.join(root, "remote-tmp"),
            "ANSIBLE_COLLECTIONS_PATH": collections,
            "ANSIBLE_NOCOLOR": "1",
            "LANG": "C.UTF-8",
            "TMPDIR": os.path.join(root, "tmp"),
        }
        for folder in ("home", "tmp", "local-tmp", "remote-tmp", "ansible-home"):
            os.makedirs(os.path.join(root, folder), exist_ok=True)

    def user_folder(self, host):
        return os.path.join(self.root, "hosts", host, "config")

    def machine_folder(self, host):
        return os.path.join(self.root, "hosts", host, "xdg")

    def user_file(self, host, product):
        return os.path.join(self.user_folder(host), "Preferences", "com.morv.%s.plist" % product)

    def shared_file(self, host):
        return os.path.join(self.machine_folder(host), "Morv", "Preferences", "com.morv.plist")

    def check(self, condition, what):
        if not condition:
            self.failures.append(what)
            print("FAILED: " + what)

    def playbook(self, name, text, *options):
        """Runs the playbook; (exit status, output, {host: (ok, changed, failed)})."""
        path = os.path.join(self.root, name)
        with open(path, "w") as playbook:
            playbook.write(text)
        run = subprocess.run(["ansible-playbook", path] + list(options), env=self.environment,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                             universal_newlines=True, timeout=300)
        recap = {}
        for match in RECAP.finditer(run.stdout.split("PLAY RECAP")[-1]):
            recap[match.group(1)] = tuple(int(match.group(n)) for n in (2, 3, 5, 6))
        return run.returncode, run.stdout, recap

    def expect_recap(self, recap, ok, changed, failed=0, ignored=0, what=""):
        expected = (ok, changed, failed, ignored)
        for host in self.hosts:
            self.check(recap.get(host) == expected,
                       "%s: %s has (ok, changed, failed, ignored) = %r in the recap, not %r" %
                       (what, host, recap.get(host), expected))

    def expect_failures(self, output, message, what):
        """Every host's task failed with the tool's `message`."""
        for host in self.hosts:
            prefix = 'fatal: [%s]: FAILED! => {"changed": false, "msg": "' % host
            self.check(prefix + json.dumps(message)[1:-1] + '"' in output,
                       "%s: %s did not fail with the tool's message" % (what, host))

    def files(self):
        """Every settings file of the fleet: its bytes and its inode and
        modification time (a write replaces the file)."""
        state = {}
        for host in self.hosts:
            for path in (self.user_file(host, SERVER), self.user_file(host, PLAYER),
                         self.shared_file(host)):
                if os.path.exists(path):
                    info = os.stat(path)
                    with open(path, "rb") as data:
                        state[path] = (data.read(), info.st_ino, info.st_mtime_ns)
        return state

    def load(self, path):
        with open(path, "rb") as data:
            return plistlib.load(data)

    def run(self):
        # The first run sets everything on every host.
        status, output, recap = self.playbook("site.yml", SITE)
        self.check(status == 0, "the first run failed:\n" + output)
        self.expect_recap(recap, 3, 3, what="first run")
        for host in self.hosts:
            server = self.load(self.user_file(host, SERVER))
            self.check(server == {"Settings": {SERVER: {"Network": {"HttpPort": 32400}}}},
                       "%s: the server's file holds %r" % (host, server))
            shared = self.load(self.shared_file(host))
            self.check(shared == {"Install": {SERVER: {"InstallPath": "/opt/mms/" + host}}},
                       "%s: the shared file holds %r" % (host, shared))
            player = self.load(self.user_file(host, PLAYER))["Settings"][PLAYER]
            self.check(player == {"Name": host, "Volume": 0.5,
                                  "Library": {"Scan": True,
                                              "Paths": ["/srv/media", "/srv/" + host]}},
                       "%s: the player's settings are %r" % (host, player))
        # Nothing else was written anywhere.
        self.check(not os.path.exists(os.path.join(self.root, "controller")),
                   "the controller's settings folders were written")

        # The second run changes nothing, and writes no file.
        before = self.files()
        self.check(len(before) == 3 * HOSTS, "%d settings files, not %d" % (len(before), 3 * HOSTS))
        status, output, recap = self.playbook("site.yml", SITE)
        self.check(status == 0, "the second run failed:\n" + output)
        self.expect_recap(recap, 3, 0, what="second run")
        self.check(self.files() == before, "the second run wrote settings files")

        # Check mode (with diff): reports the change and writes nothing.
        old = '-    "Network/HttpPort": 32400'
        new = '+    "Network/HttpPort": 8080'
        status, output, recap = self.playbook("port.yml", PORT, "--check", "--diff")
        self.check(status == 0, "the check run failed:\n" + output)
        self.expect_recap(recap, 1, 1, what="check run")
        self.check(self.files() == before, "check mode wrote settings files")
        self.check(output.count(old) == HOSTS and output.count(new) == HOSTS,
                   "check mode with --diff does not show the old and new port:\n" + output)

        # Diff mode: the port changes, with its old and new values shown;
        # read returns them (the playbook asserts them); absent removes it,
        # and then has nothing left to remove.
        status, output, recap = self.playbook("change.yml", CHANGE, "--diff")
        self.check(status == 0, "the change run failed:\n" + output)
        self.expect_recap(recap, 6, 2, what="change run")
        self.check(output.count(old) == HOSTS and output.count(new) == HOSTS,
                   "diff mode does not show the old and new port:\n" + output)
        for host in self.hosts:
            self.check('"msg": "READ %s integer 8080 /opt/mms/%s"' % (host, host) in output,
                       "%s: read did not give the kind and values:\n%s" % (host, output))
            server = self.load(self.user_file(host, SERVER))["Settings"][SERVER]
            self.check(server == {"Network": {}}, "%s: after absent: %r" % (host, server))

        # Bad values fail with the tool's message and change nothing.
        before = self.files()
        status, output, recap = self.playbook("bad.yml", BAD)
        self.expect_recap(recap, 2, 0, ignored=2, what="bad values")
        product = 'in the settings of product "MorvMediaServer"'
        self.expect_failures(output, 'morv-settings: cannot write "Network/HttpPort" %s: "eighty" '
                             'is not a whole number (type int); nothing was changed' % product,
                             "a port that is not a number")
        self.expect_failures(output, "morv-settings: standard input is not the JSON of a settings "
                             "node (as read --json prints it): at /Cover: $data holds no base64 "
                             "text; nothing was changed", "a bad tree")
        self.check(self.files() == before, "failed tasks changed settings files")

        return not self.failures


def documentation(collections, root):
    config = os.path.join(root, "ansible.cfg")
    with open(config, "w") as empty:
        empty.write("[defaults]\n")
    environment = {
        "PATH": os.environ["PATH"],
        "HOME": os.path.join(root, "home"),
        "ANSIBLE_CONFIG": config,
        "ANSIBLE_HOME": os.path.join(root, "ansible-home"),
        "ANSIBLE_LOCAL_TEMP": os.path.join(root, "local-tmp"),
        "ANSIBLE_COLLECTIONS_PATH": collections,
        "ANSIBLE_NOCOLOR": "1",
        "LANG": "C.UTF-8",
    }
    run = subprocess.run(["ansible-doc", "morv.settings.setting"], env=environment,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                         universal_newlines=True, timeout=120)
    ok = run.returncode == 0
    for text in ("> MORV.SETTINGS.SETTING", "= product", "- installer", "- key", "- type",
                 "- value", "- values", "- prune", "- state", "choices: [present, absent, read]",
                 "check_mode:", "diff_mode:", "EXAMPLES:", "RETURN VALUES:", "- changes",
                 "- kind", "morv.settings.setting:"):
        if text not in run.stdout:
            print("ansible-doc does not show %r" % text)
            ok = False
    if not ok:
        print(run.stdout)
    return ok


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--collections", required=True)
    parser.add_argument("what", choices=["fleet", "doc"])
    arguments = parser.parse_args()
    if shutil.which("ansible-playbook") is None or shutil.which("ansible-doc") is None:
        print("ansible-core is not installed (scripts/install-dependencies.sh installs it)")
        return SKIPPED
    root = tempfile.mkdtemp(prefix="morv-ansible-")
    try:
        if arguments.what == "doc":
            ok = documentation(os.path.abspath(arguments.collections), root)
        else:
            ok = Fleet(arguments.tool, os.path.abspath(arguments.collections), root).run()
    finally:
        shutil.rmtree(root, ignore_errors=True)
    print("passed" if ok else "failed")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
