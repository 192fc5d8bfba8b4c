"""A sandbox in which the program runs as one of two users, with a /dev/shm that others write to."""

import os
import shutil
import stat

import qz

NOBODY = 65534


class UserSandbox(qz.Sandbox):
    """The program as root, or as an ordinary user. Everybody may write to /dev/shm, as everywhere."""

    def __init__(self, ordinary, **settings):
        super().__init__(**settings)
        self.folder.chmod(0o1777)
        # The build may lie where an ordinary user sees nothing.
        self.outside.chmod(0o755)
        self.program = shutil.copy(qz.PROGRAM, self.outside)
        self.switch = []
        if ordinary and os.geteuid() == 0:
            self.switch = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]
        self.user = NOBODY if self.switch else os.geteuid()
        self.stranger = 1 if self.switch else NOBODY

    def start_as_user(self, *arguments):
        return self.start(command=[*self.switch, self.program, *arguments])

    def give(self, path, user):
        """Makes a file, a link or a folder that of a user."""
        if user != os.geteuid():
            os.chown(path, user, user, follow_symlinks=False)


def state(path):
    """Everything about an object that a neighbour might have changed."""
    try:
        found = os.lstat(path)
    except FileNotFoundError:
        return None
    content = None
    if stat.S_ISREG(found.st_mode):
        with open(path, "rb") as file:
            content = file.read()
    elif stat.S_ISLNK(found.st_mode):
        content = os.readlink(path)
    elif stat.S_ISDIR(found.st_mode):
        content = os.listdir(path)
    return (found.st_ino, found.st_mode, found.st_uid, found.st_nlink, found.st_size, found.st_mtime_ns, content)
