"""The build that ./check-mutants tests: which object is made of what, and how a changed source becomes a
library. The tree itself is never changed: each worker has a copy of the sources, and folders of its own
for the programs and libraries, which find each other from their places."""
import json
import os
import re
import shutil
import subprocess
from pathlib import Path

ROOMS = ("include", "locale", "lib", "tools", "data")
MOST_USERS = 10  # objects that a changed header may concern: more take minutes


class Build:
    def __init__(self, root, folder):
        self.root, self.folder = Path(root), Path(folder).resolve()
        self.compile, self.library, self.users = {}, {}, {}
        self.links = {}
        for entry in json.loads((self.folder / "compile_commands.json").read_text()):
            made = re.search(r" -o (\S+)", entry["command"]).group(1)
            self.compile[made] = entry["command"]
        self.read_links()
        self.read_users()

    def ninja(self, *words):
        return subprocess.run(["ninja", "-C", self.folder, "-t", *words], check=True, text=True,
                              stdout=subprocess.PIPE).stdout

    def read_links(self):
        for path in sorted((self.folder / "lib").glob("*.so*")):
            if path.is_symlink():
                continue
            name = f"lib/{path.name}"
            line = self.ninja("commands", "-s", name).splitlines()[-1]
            self.links[name] = line
            for made in re.findall(r"\S+\.cpp\.o(?!\S)", line):
                self.library[made] = name

    def read_users(self):
        made = None
        for line in self.ninja("deps").splitlines():
            if line and not line[0].isspace():
                made = line.split(":")[0]
            elif made in self.library and line.strip():
                path = os.path.normpath(self.folder / line.strip())
                if path.startswith(f"{self.root}/"):
                    self.users.setdefault(os.path.relpath(path, self.root), []).append(made)

    def sources(self):
        """The sources and headers that are in one of the libraries."""
        return sorted(path for path, users in self.users.items() if path.split("/")[0] in ROOMS[1:4]
                      and path.endswith((".cpp", ".h")) and len(users) <= MOST_USERS)


class Worker:
    def __init__(self, build, name, data):
        self.build, self.folder = build, build.folder / name
        shutil.rmtree(self.folder, ignore_errors=True)
        self.source = self.folder / "source"
        for room in ROOMS:
            shutil.copytree(build.root / room, self.source / room)
        for kind in ("bin", "lib", "o"):
            (self.folder / kind).mkdir()
        for path in (build.folder / "bin").iterdir():
            if path.is_file() and os.access(path, os.X_OK):
                os.link(path, self.folder / "bin" / path.name)
        shutil.copytree(data, self.folder / "data")  # which a changed program may write to
        self.sweep()
        self.reset()
        rooms = "|".join(ROOMS)
        self.ours = re.compile(re.escape(str(build.root)) + rf"(?=/(?:{rooms})(?:[/ ]|$)| |$)")

    def remove(self):
        shutil.rmtree(self.folder, ignore_errors=True)

    def sweep(self):
        """An empty folder for what tests write."""
        shutil.rmtree(self.folder / "tmp", ignore_errors=True)
        (self.folder / "tmp").mkdir()

    def reset(self):
        """All libraries as they were built."""
        for path in (self.build.folder / "lib").glob("*.so*"):
            target = self.folder / "lib" / path.name
            target.unlink(missing_ok=True)
            if path.is_symlink():
                target.symlink_to(os.readlink(path))
            else:
                os.link(path, target)

    def object(self, made, out):
        """Compiles one object from the worker's sources; False: it does not compile."""
        command = self.ours.sub(str(self.source), self.build.compile[made])
        alike = f"-fmacro-prefix-map={self.source}={self.build.root}"
        command = command.replace(f" -o {made}", f" {alike} -o {out}")
        done = subprocess.run(command, shell=True, cwd=self.build.folder, check=False,
                              env=dict(os.environ, CCACHE_DISABLE="1"), stderr=subprocess.DEVNULL)
        return done.returncode == 0

    def make(self, place, text):
        """Builds the libraries with the place changed: "made", "same code" or "does not compile"."""
        changed = self.source / place.path
        changed.write_text(place.changed(text))
        replaced = {}
        try:
            for n, made in enumerate(self.build.users[place.path]):
                out = self.folder / "o" / f"{n}.o"
                if not self.object(made, out):
                    return "does not compile"
                if out.read_bytes() != (self.build.folder / made).read_bytes():
                    replaced[made] = str(out)
        finally:
            changed.write_text(text)
        for library in {self.build.library[made] for made in replaced}:
            self.link(library, replaced)
        return "made" if replaced else "same code"

    def link(self, library, replaced):
        command = self.build.links[library]
        for made, out in replaced.items():
            command = re.sub(rf"(?<=\s){re.escape(made)}(?=\s)", out, command)
        target = self.folder / library
        target.unlink()
        command = command.replace(f" -o {library}", f" -o {target}")
        subprocess.run(command, shell=True, cwd=self.build.folder, check=True)
