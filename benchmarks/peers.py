#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Transfers the same files with brix and with other servers that are installed, side by side.

usage: peers.py BRIX [--rounds N] [--files N] [--large BYTES] [--dir FOLDER]

Every server listens on loopback only and is stopped at the end. A run is one client process from start
to end, login included; the programs take turns, and the table gives medians.
"""
import argparse
import os
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for_port(port, deadline=15.0):
    end = time.monotonic() + deadline
    while time.monotonic() < end:
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) == 0:
                return
        time.sleep(0.05)
    raise RuntimeError(f"nothing listens on port {port}")


def start(command, port):
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_for_port(port)
    return process


class Peer:
    """One client program: how it gets and puts a file and a tree. A missing way is None."""

    name = ""

    def __init__(self, work):
        self.work = work
        self.process = None

    def stop(self):
        if self.process:
            self.process.terminate()
            self.process.wait(timeout=15)

    get_file = put_file = get_tree = put_tree = None


class Brix(Peer):
    name = "brix"

    def __init__(self, work, brix):
        super().__init__(work)
        self.brix = brix
        os.environ["BRIX_PASSWORD"] = "bench"
        users = work / "users.json"
        subprocess.run([brix, "user", "add", users, "bench", "--home", work], check=True,
                       stdout=subprocess.DEVNULL)
        self.process = subprocess.Popen(
            [brix, "serve", "--users", users, "--address", "127.0.0.1", "--port", "0"],
            stdout=subprocess.PIPE, text=True)
        line = self.process.stdout.readline().split()[-1]
        self.url = f"brix://bench@{line}/"  # the second slash of a path makes it absolute

    def get_file(self, remote, local):
        return [self.brix, "--quiet", "get", f"{self.url}{remote}", local]

    def put_file(self, local, remote):
        return [self.brix, "--quiet", "put", local, f"{self.url}{remote}"]

    def get_tree(self, remote, local):
        return [self.brix, "--quiet", "get", "-r", f"{self.url}{remote}", local]

    def put_tree(self, local, remote):
        return [self.brix, "--quiet", "put", "-r", local, f"{self.url}{remote}"]


class Sftp(Peer):
    name = "sftp"
    needs = ("sftp", "/usr/sbin/sshd", "ssh-keygen")

    def __init__(self, work):
        super().__init__(work)
        port = free_port()
        for key in ("host", "user"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", work / key], check=True)
        shutil.copy(work / "user.pub", work / "authorized")
        Path("/run/sshd").mkdir(exist_ok=True)
        config = work / "sshd_config"
        config.write_text(f"ListenAddress 127.0.0.1\nPort {port}\nHostKey {work}/host\n"
                          f"AuthorizedKeysFile {work}/authorized\nStrictModes no\nPermitRootLogin yes\n"
                          f"PidFile none\nSubsystem sftp internal-sftp\n")
        self.process = start(["/usr/sbin/sshd", "-D", "-f", config], port)
        self.base = ["sftp", "-q", "-P", str(port), "-i", work / "user", "-o", "BatchMode=yes",
                     "-o", "StrictHostKeyChecking=no", "-o", f"UserKnownHostsFile={work}/known", "-b"]

    def batch(self, line):
        path = self.work / "batch"
        path.write_text(line + "\n")
        return self.base + [path, "127.0.0.1"]

    def get_file(self, remote, local):
        return self.batch(f"get {remote} {local}")

    def put_file(self, local, remote):
        return self.batch(f"put {local} {remote}")

    def get_tree(self, remote, local):
        return self.batch(f"get -r {remote} {local}")

    def put_tree(self, local, remote):
        Path(remote).mkdir()
        return self.batch(f"put -r {local}/. {remote}")


class Lftp(Peer):
    name = "lftp, vsftpd"
    needs = ("lftp", "/usr/sbin/vsftpd")

    def __init__(self, work):
        super().__init__(work)
        port = free_port()
        Path("/var/run/vsftpd/empty").mkdir(parents=True, exist_ok=True)
        config = work / "vsftpd.conf"
        config.write_text(f"listen=YES\nlisten_address=127.0.0.1\nlisten_port={port}\nbackground=NO\n"
                          "anonymous_enable=YES\nanon_upload_enable=YES\nanon_mkdir_write_enable=YES\n"
                          "anon_other_write_enable=YES\nwrite_enable=YES\nanon_umask=022\n"
                          f"anon_root={work}\nallow_writeable_chroot=YES\nno_anon_password=YES\n"
                          "ftp_username=root\nseccomp_sandbox=NO\nrun_as_launching_user=YES\n")
        self.process = start(["/usr/sbin/vsftpd", config], port)
        self.port = port

    def inside(self, path):
        return path

    def script(self, line):
        return ["lftp", "-e", f"set net:timeout 10; set net:max-retries 1; set ftp:use-mdtm no; {line}; quit",
                f"ftp://127.0.0.1:{self.port}"]

    def get_file(self, remote, local):
        return self.script(f"get {self.inside(remote)} -o {local}")

    def put_file(self, local, remote):
        return self.script(f"put {local} -o {self.inside(remote)}")

    def get_tree(self, remote, local):
        return self.script(f"mirror {self.inside(remote)} {local}")

    def put_tree(self, local, remote):
        return self.script(f"mirror -R {local} {self.inside(remote)}")


class Rsync(Peer):
    name = "rsync daemon"
    needs = ("rsync",)

    def __init__(self, work):
        super().__init__(work)
        port = free_port()
        config = work / "rsyncd.conf"
        config.write_text(f"address = 127.0.0.1\nport = {port}\nuse chroot = no\nuid = root\ngid = root\n"
                          f"[work]\npath = {work}\nread only = false\n")
        self.process = start(["rsync", "--daemon", "--no-detach", "--config", config], port)
        self.url = f"rsync://127.0.0.1:{port}/work"

    def inside(self, path):
        return f"{self.url}/{Path(path).relative_to(self.work)}"

    def get_file(self, remote, local):
        return ["rsync", "-W", self.inside(remote), local]

    def put_file(self, local, remote):
        return ["rsync", "-W", local, self.inside(remote)]

    def get_tree(self, remote, local):
        return ["rsync", "-W", "-r", f"{self.inside(remote)}/", local]

    def put_tree(self, local, remote):
        return ["rsync", "-W", "-r", f"{local}/", self.inside(remote)]


class Nginx(Peer):
    name = "curl, nginx"
    needs = ("curl", "/usr/sbin/nginx")

    def __init__(self, work):
        super().__init__(work)
        port = free_port()
        config = work / "nginx.conf"
        config.write_text(f"daemon off; user root; pid {work}/nginx.pid; error_log {work}/nginx.log;\n"
                          "events {}\nhttp { access_log off; sendfile on; client_max_body_size 0;\n"
                          f"client_body_temp_path {work}/nginx-body;\n"
                          f"server {{ listen 127.0.0.1:{port}; root {work};\n"
                          "location / { dav_methods PUT; } } }\n")
        self.process = start(["/usr/sbin/nginx", "-c", config], port)
        self.url = f"http://127.0.0.1:{port}"

    def inside(self, path):
        return f"{self.url}/{Path(path).relative_to(self.work)}"

    def get_file(self, remote, local):
        return ["curl", "-s", "-f", "-o", local, self.inside(remote)]


def make_files(work, count, size, large):
    tree = work / "tree"
    block = os.urandom(1 << 20)
    for i in range(count):
        folder = tree / str(i % 100)
        folder.mkdir(parents=True, exist_ok=True)
        offset = (i * 977) % (len(block) - size)
        (folder / f"file-{i}").write_bytes(block[offset:offset + size])
    with open(work / "large", "wb") as file:
        for _ in range(0, large, len(block)):
            file.write(block)
    return tree, work / "large"


def timed(command):
    begin = time.monotonic()
    done = subprocess.run([str(part) for part in command], stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True)
    seconds = time.monotonic() - begin
    if done.returncode != 0:
        raise RuntimeError(f"{command[0]} failed: {done.stderr.strip()[-400:]}")
    return seconds


def count_files(path):
    return sum(len(files) for _, _, files in os.walk(path))


def measure(work, peers, job, rounds, source, check):
    """The median seconds of each peer that can do the job, the peers taking turns."""
    seconds = {peer.name: [] for peer in peers if getattr(peer, job)}
    for _ in range(rounds):
        for peer in list(peers):
            if peer.name not in seconds:
                continue
            target = work / "target"
            if target.is_dir():
                shutil.rmtree(target)
            target.unlink(missing_ok=True)
            try:
                seconds[peer.name].append(timed(getattr(peer, job)(source, target)))
                check(target)
            except RuntimeError as error:
                print(f"{peer.name}, {job}: {error}", file=sys.stderr)
                del seconds[peer.name]
    return {name: statistics.median(values) for name, values in seconds.items() if values}


def table(title, unit, amount, results):
    print(f"\n{title}\n\n| program | seconds | {unit} | brix is |\n|---|---|---|---|")
    own = results.get("brix")
    for name, seconds in sorted(results.items(), key=lambda item: item[1]):
        ratio = f"{seconds / own:.2f} times as fast" if own and name != "brix" else ""
        print(f"| {name} | {seconds:.3f} | {amount / seconds:,.0f} | {ratio} |")
    sys.stdout.flush()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("brix")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--files", type=int, default=10000)
    parser.add_argument("--large", type=int, default=1 << 30)
    parser.add_argument("--dir", default="/dev/shm")
    options = parser.parse_args()

    with tempfile.TemporaryDirectory(prefix="brix-peers-", dir=options.dir) as folder:
        work = Path(folder)
        work.chmod(0o755)
        tree, large = make_files(work, options.files, 4096, options.large)
        peers = [Brix(work, options.brix)]
        for kind in (Sftp, Lftp, Rsync, Nginx):
            if all(shutil.which(need) for need in kind.needs):
                try:
                    peers.append(kind(work))
                except Exception as error:  # a server that does not start is left out, and said
                    print(f"{kind.name}: left out: {error}", file=sys.stderr)
            else:
                print(f"{kind.name}: not installed", file=sys.stderr)
        try:
            def whole_tree(target):
                if count_files(target) != options.files:
                    raise RuntimeError(f"{count_files(target)} of {options.files} files arrived")

            def whole_file(target):
                if target.stat().st_size != large.stat().st_size:
                    raise RuntimeError("the file is not whole")

            mib = large.stat().st_size / (1 << 20)
            for job, title in (("get_file", "get"), ("put_file", "put")):
                results = measure(work, peers, job, options.rounds, large, whole_file)
                table(f"One file of {mib:,.0f} MiB, {title}", "MiB/s", mib, results)
            for job, title in (("get_tree", "get"), ("put_tree", "put")):
                results = measure(work, peers, job, options.rounds, tree, whole_tree)
                table(f"{options.files:,} files of 4 KiB, {title}", "files/s", options.files, results)
        finally:
            for peer in peers:
                peer.stop()


main()
