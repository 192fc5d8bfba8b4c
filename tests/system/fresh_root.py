"""Root folders with nothing in them but what Debian calls essential, for a package to be installed, used and
removed in; programs run there in a sandbox.

`PackagesRoot` is made from the files of packages that are installed on this machine, in seconds, without
network and without root's rights: the essential packages, and then what a package depends on and nothing else.
Its dpkg knows these packages alone. `DebootstrapRoot` is made by debootstrap and apt from the network's
packages, in minutes, by root.
"""

import os
import re
import shutil
import subprocess
from pathlib import Path

USER = 1000
PATH = "/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
PASSWD = f"""root:x:0:0:root:/root:/bin/bash
render:x:{USER}:{USER}::/tmp:/bin/bash
nobody:x:65534:65534::/:/bin/false
"""
GROUP = f"root:x:0:\nrender:x:{USER}:\nnogroup:x:65534:\n"


def call(*command, **options):
    """Runs a command; returns its output as text, raises an error with all its output if it fails."""
    done = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False, timeout=280, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{command}: exit code {done.returncode}\n{done.stdout}")
    return done.stdout


class InstalledPackages:
    """dpkg's data on the packages of this machine."""

    def __init__(self, database="/var/lib/dpkg"):
        self.database = Path(database)
        self.stanzas, self.fields, self.providers, self.essential = {}, {}, {}, []
        for stanza in (self.database / "status").read_text(encoding="utf-8").split("\n\n"):
            fields = dict(re.findall(r"^([\w-]+): (.*)$", stanza, re.MULTILINE))
            # A trigger that waits belongs to this machine; the package is there.
            if not re.search(r" ok (installed|triggers-\w+)$", fields.get("Status", "")):
                continue
            name = fields["Package"]
            stanza = re.sub(r"(?m)^Triggers-\w+: .*\n", "", stanza.strip("\n") + "\n")
            self.stanzas[name] = re.sub(r"(?m)^Status: .*$", "Status: install ok installed", stanza)
            self.fields[name] = fields
            for provided in self.names(fields.get("Provides", "")):
                self.providers.setdefault(provided, name)
            if fields.get("Essential") == "yes":
                self.essential.append(name)

    @staticmethod
    def names(relation):
        return [re.split(r"[ :(]", part.strip())[0] for part in relation.split(",") if part.strip()]

    def closure(self, wanted, present=()):
        """The packages named or needed by those named, and not among those present."""
        found, left = [], list(wanted)
        while left:
            name = left.pop()
            if name not in self.stanzas:
                name = self.providers.get(name, name)
            if name in found or name in present:
                continue
            if name not in self.stanzas:
                raise RuntimeError(f"the package {name} is not installed on this machine")
            found.append(name)
            fields = self.fields[name]
            for group in ",".join([fields.get("Pre-Depends", ""), fields.get("Depends", "")]).split(","):
                choices = self.names(group.replace("|", ","))
                here = [choice for choice in choices if choice in self.stanzas or choice in self.providers]
                left += (here or choices)[:1]
        return found

    def lists(self, name):
        """The files of dpkg's own about one package."""
        info = self.database / "info"
        return [*info.glob(f"{name}.*"), *info.glob(f"{name}:{self.fields[name]['Architecture']}.*")]

    def files(self, name):
        for path in self.lists(name):
            if path.suffix == ".list":
                yield from (line.lstrip("/") for line in path.read_text(encoding="utf-8").splitlines())


class FreshRoot:
    def __init__(self, path):
        self.path = Path(path)

    def run(self, script, *, user=USER, extra=(), check=True):
        """Runs a shell script inside, as an ordinary user unless `user` is 0: no network, its own processes
        and shared memory. Gives the completed process, its output as text."""
        done = subprocess.run(
            ["bwrap", "--unshare-all", "--uid", str(user), "--gid", str(user), "--die-with-parent",
             "--new-session", "--bind", str(self.path), "/", "--proc", "/proc", "--dev", "/dev",
             "--tmpfs", "/tmp", *extra, "--chdir", "/tmp", "--clearenv", "--setenv", "PATH", PATH,
             "--setenv", "LC_ALL", "C.UTF-8", "--setenv", "HOME", "/tmp", "sh", "-c", script],
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=280, check=False)
        if check and done.returncode != 0:
            raise RuntimeError(f"exit code {done.returncode} of: {script}\n{done.stdout}{done.stderr}")
        return done

    def files(self):
        """Every path of the root."""
        return {str(Path(folder, name).relative_to(self.path))
                for folder, folders, names in os.walk(self.path) for name in folders + names}

    def destroy(self):
        shutil.rmtree(self.path, ignore_errors=True)


class PackagesRoot(FreshRoot):
    def __init__(self, path):
        super().__init__(path)
        self.machine = InstalledPackages()
        self.present = []
        for folder in ("var/lib/dpkg/info", "var/lib/dpkg/updates", "var/lib/dpkg/triggers", "var/log", "etc",
                       "tmp", "run", "proc", "dev"):
            (self.path / folder).mkdir(parents=True)
        # On a merged tree /bin and its like are links; what the lists name below them goes where they lead.
        for top in Path("/").iterdir():
            if top.is_symlink() and not os.path.isabs(os.readlink(top)):
                (self.path / top.name).symlink_to(os.readlink(top))
                (self.path / os.readlink(top)).mkdir(parents=True, exist_ok=True)
        self.status = self.path / "var/lib/dpkg/status"
        self.status.touch()
        (self.path / "etc/passwd").write_text(PASSWD, encoding="utf-8")
        (self.path / "etc/group").write_text(GROUP, encoding="utf-8")
        # The shell's name is made by a script of its package and is in no list of files.
        self.add(self.machine.essential, ["usr/bin/sh"])

    def add(self, wanted, more_files=()):
        """Unpacks packages with all their dependencies."""
        packages = self.machine.closure(wanted, self.present)
        files = {path for name in packages for path in self.machine.files(name)} | set(more_files)
        files = [path for path in sorted(files) if path not in ("", ".") and os.path.lexists("/" + path) and
                 not (self.path / path).is_symlink()]
        pack = ["tar", "-C", "/", "--no-recursion", "--hard-dereference", "--ignore-failed-read", "--null",
                "-T", "-", "-cf", "-"]
        unpack = ["tar", "-C", str(self.path), "--keep-directory-symlink", "--no-same-owner", "-xpf", "-"]
        with subprocess.Popen(unpack, stdin=subprocess.PIPE) as unpacking:
            subprocess.run(pack, input="\0".join(files).encode(), stdout=unpacking.stdin,
                           stderr=subprocess.DEVNULL, check=True)
            unpacking.stdin.close()
        if unpacking.returncode != 0:
            raise RuntimeError("the files of the packages could not be put down")
        for name in packages:
            for path in self.machine.lists(name):
                shutil.copy2(path, self.path / "var/lib/dpkg/info")
        with self.status.open("a", encoding="utf-8") as status:
            status.writelines(self.machine.stanzas[name] + "\n" for name in packages)
        self.present += packages

    def administer(self, command, *extra):
        return self.run(command, user=0, extra=extra).stdout

    def install(self, deb):
        """What the package says it depends on, then the package through dpkg, which refuses it if that is
        not all."""
        self.add(InstalledPackages.names(call("dpkg-deb", "-f", deb, "Depends")))
        self.administer("dpkg --install /tmp/new.deb", "--ro-bind", str(deb), "/tmp/new.deb")
        # Those of the packages that were unpacked without dpkg.
        self.administer("dpkg --triggers-only --pending")


class DebootstrapRoot(FreshRoot):
    def __init__(self, path):
        super().__init__(path)
        # In a private mount namespace, so that nothing stays mounted.
        about = Path("/etc/os-release").read_text(encoding="utf-8")
        release = re.search(r"^VERSION_CODENAME=(\w+)$", about, re.MULTILINE)
        call("unshare", "--mount", "--pid", "--fork", "debootstrap", "--variant=minbase", release[1], path)
        for name, text in (("passwd", PASSWD), ("group", GROUP)):
            with (self.path / "etc" / name).open("a", encoding="utf-8") as file:
                file.write(next(line for line in text.splitlines() if line.startswith("render")) + "\n")

    def administer(self, command, *extra):
        """As root and with the network."""
        return call("bwrap", "--unshare-pid", "--unshare-ipc", "--die-with-parent", "--cap-add", "ALL",
                    "--bind", self.path, "/", "--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp",
                    "--ro-bind", "/etc/resolv.conf", "/etc/resolv.conf", *extra, "--clearenv",
                    "--setenv", "PATH", PATH, "--setenv", "DEBIAN_FRONTEND", "noninteractive",
                    "sh", "-c", command)

    def add(self, wanted):
        self.administer("apt-get -q -y --no-install-recommends install " + " ".join(wanted))

    def install(self, deb):
        self.administer("apt-get -q -y --no-install-recommends install /tmp/new.deb", "--ro-bind", str(deb),
                        "/tmp/new.deb")
