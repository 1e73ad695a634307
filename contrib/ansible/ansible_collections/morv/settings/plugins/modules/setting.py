#!/usr/bin/python
# -*- coding: utf-8 -*-
# morv.settings.setting: reads and changes the settings of a Morv product on
# a managed host by running the installed morv-settings command (the one
# that PATH finds). Changes go through "morv-settings apply", which stores
# only what differs in one locked save and reports exactly what changed.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: setting
short_description: Manage the settings of Morv's products
version_added: "1.0.0"
description:
  - Reads and changes the settings of a Morv product on the managed host with
    the C(morv-settings) command, which must be installed and on the C(PATH).
  - A product's own settings are the key C(Settings/PRODUCT) in its per-user
    file, C($XDG_CONFIG_HOME/Preferences/com.morv.PRODUCT.plist), read with
    machine-wide defaults from the shared file,
    C($XDG_CONFIG_DIRS/Morv/Preferences/com.morv.plist). With I(installer),
    the module works on the installer's record of the product instead
    (C(Install/PRODUCT) in the shared file).
  - Changes go through C(morv-settings apply) - one save under the file's
    lock, merged with what other programs saved meanwhile, storing only what
    differs - so a task reports C(changed) only when the store changed, and
    a second run of the same task reports no change.
  - Set C(XDG_CONFIG_HOME) and C(XDG_CONFIG_DIRS) with the task's or play's
    C(environment) keyword to choose other folders than the user's defaults.
options:
  product:
    description: The product id, such as C(MorvMediaServer).
    type: str
    required: true
  installer:
    description:
      - Work on the installer's record of the product (C(Install/PRODUCT) in
        the shared file) instead of the product's own settings.
    type: bool
    default: false
  key:
    description:
      - The entry, as a slash path - C(Network/HttpPort) is the entry
        C(HttpPort) under the key C(Network).
      - Required for I(state=present) without I(values), and for
        I(state=absent). For I(state=read), the product's whole node when
        left out.
    type: str
  type:
    description:
      - The type that I(value) is written as, parsed as C(morv-settings write)
        parses it (strictly; a bad value fails the task and changes nothing).
        Integers are decimal and must fit the type, booleans are C(true) or
        C(false), data is hexadecimal digits.
      - >-
        Without it, I(value) is taken in the JSON form that
        C(morv-settings read --json) prints - a YAML integer is an integer, a
        float a real, a string a string, a boolean a boolean, a list an array,
        a mapping a key with entries, C({"$data": BASE64}) data.
    type: str
    choices: [int, uint, int32, uint32, int64, uint64, float, double, bool, string, data]
  value:
    description: The value that I(state=present) stores at I(key).
    type: raw
  values:
    description:
      - Entries for the product's node as a whole, in the JSON form of
        C(morv-settings read --json) - every entry it names is made equal to
        it, in kind and value; keys merge with the keys of their names.
      - Applied with C(morv-settings apply). Cannot be combined with I(key).
    type: dict
  prune:
    description:
      - With I(values), also remove the product's entries that I(values) does
        not name.
    type: bool
    default: false
  state:
    description:
      - C(present) makes the entry at I(key) (or the entries of I(values)) so.
      - C(absent) removes the entry at I(key), with everything below it, from
        the file that changes go to (machine-wide defaults stay).
      - C(read) changes nothing and returns the entry's I(kind) and I(value).
    type: str
    choices: [present, absent, read]
    default: present
extends_documentation_fragment:
  - action_common_attributes
attributes:
  check_mode:
    support: full
  diff_mode:
    support: full
  platform:
    platforms: posix
requirements:
  - The C(morv-settings) command on the managed host's C(PATH).
notes:
  - Failures carry the message of C(morv-settings); a task that fails has
    changed nothing.
  - In diff mode, the diff shows the old and new value of each changed entry
    by its key path.
author:
  - Morv developers
"""

EXAMPLES = r"""
- name: Set the media server's port on every host
  morv.settings.setting:
    product: MorvMediaServer
    key: Network/HttpPort
    type: int
    value: 32400

- name: Record where the installer put the server
  morv.settings.setting:
    product: MorvMediaServer
    installer: true
    key: InstallPath
    type: string
    value: /opt/mms/bin/mms

- name: Read the install path back
  morv.settings.setting:
    product: MorvMediaServer
    installer: true
    key: InstallPath
    state: read
  register: install_path

- name: Make the server's network settings exactly these
  morv.settings.setting:
    product: MorvMediaServer
    values:
      Network:
        HttpPort: 32400
        Enabled: true
        Certificate: {"$data": "AAEC"}
    prune: true

- name: Remove a setting
  morv.settings.setting:
    product: MorvMediaServer
    key: Network/Proxy
    state: absent
"""

RETURN = r"""
changes:
  description:
    - Each entry that changed (or, in check mode, would change), as
      C(morv-settings apply --json) reports it.
    - C(change) is C(added), C(changed) or C(removed); C(path) the entry's
      key path below the product's node; C(old) and C(new) the values in the
      JSON form of C(morv-settings read --json), and C(oldKind) and C(newKind)
      their kinds (C(integer), C(real), C(boolean), C(string), C(data),
      C(key), C(array), C(date), C(set), C(uid)). An added entry has no
      C(old) nor C(oldKind), a removed one no C(new) nor C(newKind).
  returned: when I(state) is C(present) or C(absent)
  type: list
  elements: dict
  sample:
    - change: changed
      path: Network/HttpPort
      old: 8080
      oldKind: integer
      new: 32400
      newKind: integer
kind:
  description: The kind of the entry that was read (C(key) for a key).
  returned: when I(state=read)
  type: str
  sample: string
value:
  description:
    - The value that was read, in the JSON form of C(morv-settings read --json)
      (a key as a mapping of its entries).
  returned: when I(state=read)
  type: raw
  sample: /opt/mms/bin/mms
"""

import json
import plistlib
import shutil
import tempfile

from ansible.module_utils.basic import AnsibleModule

TYPES = ["int", "uint", "int32", "uint32", "int64", "uint64", "float", "double", "bool", "string", "data"]


class SettingsTool(object):
    """The morv-settings command on the managed host, for one product."""

    def __init__(self, module):
        self.module = module
        self.path = module.get_bin_path("morv-settings", required=True)
        self.product = module.params["product"]
        self.installer = ["--installer"] if module.params["installer"] else []

    def run(self, arguments, data=None, environ_update=None, text=True):
        """Runs the tool; (exit status, output, messages)."""
        return self.module.run_command(
            [self.path] + arguments,
            data=data,
            binary_data=True,
            environ_update=environ_update,
            encoding="utf-8" if text else None,
        )

    def must(self, arguments, data=None, environ_update=None, text=True):
        """Runs the tool; its output, or the task fails with its message."""
        rc, out, err = self.run(arguments, data, environ_update, text)
        if rc != 0:
            self.fail(rc, out, err)
        return out

    def fail(self, rc, out, err):
        message = err if isinstance(err, str) else err.decode("utf-8", "replace")
        self.module.fail_json(msg=message.strip() or "morv-settings failed", rc=rc, stderr=message)

    def typed_value(self, key, type_name, value):
        """The JSON form of `value` written as `type_name`: what the tool's
        write stores for it, read back with read --json. The write goes to
        a scratch settings folder, never to the host's settings, so a value
        that does not parse fails with the tool's own message for it and
        nothing is changed."""
        if isinstance(value, bool):
            text = "true" if value else "false"
        else:
            text = str(value)
        scratch = tempfile.mkdtemp(prefix="morv-settings-")
        try:
            environ = {
                "HOME": scratch,
                "XDG_CONFIG_HOME": scratch + "/home",
                "XDG_CONFIG_DIRS": scratch + "/xdg",
            }
            target = self.installer + ["--", self.product, key]
            self.must(["write"] + target + [type_name, text], environ_update=environ)
            return json.loads(self.must(["read", "--json"] + self.installer + ["--", self.product, key], environ_update=environ))
        finally:
            shutil.rmtree(scratch, ignore_errors=True)

    def apply(self, tree, prune, check):
        """Runs apply with `tree`; its report."""
        arguments = ["apply", "--json"] + self.installer
        if prune:
            arguments.append("--prune")
        if check:
            arguments.append("--check")
        output = self.must(arguments + ["--", self.product, "-"], data=json.dumps(tree))
        return json.loads(output)

    def kind_of(self, key):
        """The kind of the entry at `key` ("key" for a key), as list names it."""
        parts = key.split("/")
        parent = "/".join(parts[:-1])
        listing = json.loads(self.must(["list", "--json"] + self.installer + ["--", self.product] + ([parent] if parent else [])))
        if parts[-1] in listing["keys"]:
            return "key"
        return listing["values"].get(parts[-1])

    def read(self, key):
        """The JSON form of the entry at `key` (the whole node for none), as
        the product reads it; the task fails with the tool's message when
        it is not there."""
        return json.loads(self.must(["read", "--json"] + self.installer + ["--", self.product] + ([key] if key else [])))

    def own_entry(self, key):
        """Whether the file that changes go to holds the entry at `key`
        itself (not only through the machine-wide defaults)."""
        where = json.loads(self.must(["where", "--json"] + self.installer + ["--", self.product]))
        own = where["sharedFile"] if self.installer else where.get("perUserFile")
        if not own or not own["exists"]:
            return False
        rc, out, err = self.run(["export", "--format", "binary"] + self.installer + ["--", self.product], text=False)
        if rc != 0:
            if own["readable"]:
                return False  # the file has nothing for the product
            self.fail(rc, out, err)
        node = plistlib.loads(out)
        for name in key.split("/"):
            if not isinstance(node, dict) or name not in node:
                return False
            node = node[name]
        return True


def nest(key, value):
    """{"a": {"b": value}} for the key path "a/b"."""
    tree = value
    for name in reversed(key.split("/")):
        tree = {name: tree}
    return tree


def diff_of(changes):
    """Ansible's before/after: the old and new value of each change by its path."""
    before = dict((c["path"], c["old"]) for c in changes if "old" in c)
    after = dict((c["path"], c["new"]) for c in changes if "new" in c)
    return {"before": before, "after": after}


def main():
    module = AnsibleModule(
        argument_spec=dict(
            product=dict(type="str", required=True),
            installer=dict(type="bool", default=False),
            key=dict(type="str", no_log=False),
            type=dict(type="str", choices=TYPES),
            value=dict(type="raw"),
            values=dict(type="dict"),
            prune=dict(type="bool", default=False),
            state=dict(type="str", default="present", choices=["present", "absent", "read"]),
        ),
        mutually_exclusive=[["key", "values"]],
        required_if=[["state", "absent", ["key"]]],
        supports_check_mode=True,
    )
    params = module.params
    tool = SettingsTool(module)
    state = params["state"]
    key = params["key"]

    if state == "read":
        value = tool.read(key)
        module.exit_json(changed=False, kind=tool.kind_of(key) if key else "key", value=value)

    if state == "absent":
        changes = []
        if tool.own_entry(key):
            old = tool.read(key)
            changes.append({"change": "removed", "path": key, "old": old, "oldKind": tool.kind_of(key)})
            if not module.check_mode:
                tool.must(["delete"] + tool.installer + ["--", tool.product, key])
        result = dict(changed=bool(changes), changes=changes)
        if module._diff:
            result["diff"] = diff_of(changes)
        module.exit_json(**result)

    if params["values"] is not None:
        tree, prune = params["values"], params["prune"]
    else:
        if key is None:
            module.fail_json(msg="state=present needs key (with value) or values")
        if params["value"] is None:
            module.fail_json(msg="state=present with key needs value")
        if params["type"]:
            wanted = tool.typed_value(key, params["type"], params["value"])
        else:
            wanted = params["value"]
        tree, prune = nest(key, wanted), False
    report = tool.apply(tree, prune, module.check_mode)
    result = dict(changed=report["changed"], changes=report["changes"])
    if module._diff:
        result["diff"] = diff_of(report["changes"])
    module.exit_json(**result)


if __name__ == "__main__":
    main()
