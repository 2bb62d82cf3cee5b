#!/usr/bin/env python3
"""Makes a data set by the scripts of examples/cluster, and holds it against one that a single process has made.

    check_cluster.py slurm|parallel|snakemake KRRENDER

`slurm` starts a cluster of one node with two slots (munged, slurmctld, slurmd on the loopback interface, everything in a
folder that goes afterwards); it needs root and Debian's slurmctld slurmd slurm-client munge. The other two need parallel and
snakemake. Exit status: 0 all is well, 1 not, 77 what it needs is not there.
"""
import contextlib
import ctypes
import hashlib
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCRIPTS = ROOT / "examples/cluster"
MOST_SECONDS = 540 # of the whole: ctest, which would leave the daemons behind, waits longer
TASKS = 4
SHARDS = 12

SLURM_CONF = """
ClusterName=test
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={ports[0]}
SlurmdPort={ports[1]}
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
# Work that was put back may begin again when its old permission has run out: seconds, not two minutes.
AuthInfo=socket={folder}/munge.sock,cred_expire=5
StateSaveLocation={folder}/state
SlurmdSpoolDir={folder}/spool
SlurmctldPidFile={folder}/slurmctld.pid
SlurmdPidFile={folder}/slurmd.pid
SlurmctldLogFile={folder}/slurmctld.log
SlurmdLogFile={folder}/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core_Memory
SchedulerParameters=sched_interval=1,batch_sched_delay=0
# Two slots, whatever the machine has.
SlurmdParameters=config_overrides
ReturnToService=2
NodeName={host} NodeAddr=127.0.0.1 CPUs=2 RealMemory=4096 State=UNKNOWN
PartitionName=main Nodes={host} Default=YES MaxTime=INFINITE State=UP
"""


class Failure(Exception):
    """What is wrong, in a sentence."""


def demand(condition, sentence):
    if not condition:
        raise Failure(sentence)


def run(*command, **options):
    """Its output; a command that fails ends the test."""
    result = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            errors="replace", check=False, **options)
    demand(result.returncode == 0, "%s ended with %d:\n%s" % (command[0], result.returncode, result.stdout))
    return result.stdout


def wait_for(condition, what, seconds=120.0):
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        demand(time.monotonic() < end, "after %d s still waiting for %s" % (seconds, what))
        time.sleep(0.02)


def write_recipe(folder):
    """Two arms, all kinds of image; small, so that most of the time goes into what is tested."""
    recipe = json.loads((ROOT / "samples/dataset_arm.json").read_text())
    recipe.update(count=SHARDS * 40, samplesPerShard=40, size=[96, 72], samplesPerPixel=1)
    del recipe["$schema"]
    for robot in recipe["robots"]:
        robot["file"] = str(ROOT / "samples" / robot["file"])
    (folder / "recipe.json").write_text(json.dumps(recipe))


def hashes(folder):
    """SHA-256 of every file below, what is left of unfinished work among them."""
    return {str(path.relative_to(folder)): hashlib.sha256(path.read_bytes()).hexdigest()
            for path in sorted(folder.rglob("*")) if path.is_file()}


def demand_equal(made, expected):
    made, expected = hashes(made), hashes(expected)
    different = sorted(path for path in made.keys() | expected.keys() if made.get(path) != expected.get(path))
    demand(len(expected) > SHARDS * 40 * 5, "one process has made only %d files" % len(expected))
    demand(not different, "%d files are not those of one process, the first of them %s" % (len(different), different[:1]))
    print("%d files, all with the bytes of one process" % len(made))


def damage(folder):
    """Changes one byte of one file; its name in the data set."""
    path = sorted(folder.glob("shard-000005/depth/*"))[3]
    content = bytearray(path.read_bytes())
    content[len(content) // 2] ^= 1
    path.write_bytes(content)
    return str(path.relative_to(folder))


class Cluster:
    """A Slurm of one node. The daemons are children of this process, which ends them by their ids."""

    def __init__(self, folder):
        self.folder = folder
        self.daemons = []
        self.environment = dict(os.environ, SLURM_CONF=str(folder / "slurm.conf"))

    def start(self):
        for name in ("state", "spool"):
            (self.folder / name).mkdir()
        key = self.folder / "munge.key"
        key.write_bytes(os.urandom(1024))
        key.chmod(0o400)
        with contextlib.ExitStack() as stack:
            sockets = [stack.enter_context(socket.socket()) for _ in range(2)]
            for each in sockets:
                each.bind(("127.0.0.1", 0))
            ports = [each.getsockname()[1] for each in sockets]
        host = socket.gethostname().split(".")[0]
        (self.folder / "slurm.conf").write_text(SLURM_CONF.format(host=host, ports=ports, folder=self.folder))
        self.daemon("munged", "--foreground", "--force", "--key-file=%s" % key,
                    *("--%s=%s/munge.%s" % (option, self.folder, end) for option, end in
                      (("socket", "sock"), ("pid-file", "pid"), ("log-file", "log"), ("seed-file", "seed"))))
        wait_for((self.folder / "munge.sock").exists, "munged")
        self.daemon("slurmctld", "-D")
        self.daemon("slurmd", "-D")
        wait_for(lambda: "idle" in self.ask("sinfo", "--noheader", "--format=%T"), "the node to be idle")

    def daemon(self, name, *arguments):
        libc = ctypes.CDLL(None) # loaded before the fork
        die_with_parent = lambda: libc.prctl(1, signal.SIGTERM) # PR_SET_PDEATHSIG, should this process be killed
        with open(self.folder / (name + ".out"), "wb") as out:
            self.daemons.append((name, subprocess.Popen([name, *arguments], env=self.environment, stdout=out,
                                                        stderr=out, preexec_fn=die_with_parent)))

    def ask(self, *command):
        """Standard output, whatever became of the command."""
        return subprocess.run(command, env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              text=True, check=False).stdout

    def end(self):
        if len(self.daemons) == 3:
            with contextlib.suppress(Failure):
                self.ask("scancel", "--user=root", "--signal=KILL", "--full")
                self.ask("scancel", "--user=root")
                wait_for(lambda: not self.ask("squeue", "--noheader"), "cancelled jobs", 20.0)
        for name, process in reversed(self.daemons):
            process.terminate()
            try:
                process.wait(20)
            except subprocess.TimeoutExpired:
                print("%s (%d) had to be killed" % (name, process.pid))
                process.kill()
                process.wait()

    def submit(self, *arguments):
        return run("sbatch", "--parsable", *arguments, cwd=self.folder, env=self.environment).strip()

    def job(self, number):
        """What Slurm tells of a job or a task of an array."""
        return dict(re.findall(r"(\S+?)=(\S*)", self.ask("scontrol", "show", "job", "--oneliner", number)))

    def wait_for_end(self, number):
        """How a job has ended: COMPLETED, FAILED, ..."""
        ends = ("COMPLETED", "FAILED", "CANCELLED", "TIMEOUT", "NODE_FAIL")
        return wait_for(lambda: (state := self.job(number).get("JobState")) in ends and state, "job " + number, 300.0)

    def logs(self):
        for path in sorted(self.folder.glob("*.log")):
            print("--- %s\n%s" % (path.name, "\n".join(path.read_text(errors="replace").split("\n")[-15:])))


def interrupt_tasks(cluster, array, data):
    """One task is put back in the middle of a shard, another one is killed and never comes again."""
    for task in (0, 1):
        # Of its shards, task, task + TASKS, ..., the first one is there and the second one begun.
        wait_for(lambda: (data / ("shard-%06d" % task)).exists() and
                 list(data.glob(".shard-%06d.*.tmp" % (task + TASKS))), "task %d to be in its second shard" % task)
        if task == 0:
            run("scontrol", "requeue", "%s_0" % array, env=cluster.environment)
        else:
            run("scancel", "--batch", "--signal=KILL", "%s_1" % array, env=cluster.environment)


def check_slurm(folder, one):
    cluster = Cluster(folder)
    data = folder / "data"
    last = "0-%d" % (TASKS - 1)
    try:
        cluster.start()
        array = cluster.submit("--array=" + last, SCRIPTS / "dataset.sbatch", "recipe.json", "data")
        check = cluster.submit("--dependency=afterany:" + array, SCRIPTS / "dataset_check.sbatch", "recipe.json", "data")
        interrupt_tasks(cluster, array, data)
        state = cluster.wait_for_end(check)
        demand(state == "COMPLETED", "the check ended as " + state)
        log = (folder / ("dataset-%s_0.log" % array)).read_text()
        demand("restarts: 0" in log and "restarts: 1" in log, "task 0 was not put back:\n" + log)
        demand(cluster.job(array + "_1").get("JobState") == "FAILED", "task 1 was not killed")
        demand_equal(data, one)

        name = damage(data)
        check = cluster.submit(SCRIPTS / "dataset_check.sbatch", "recipe.json", "data")
        demand(cluster.wait_for_end(check) == "FAILED", "damage to %s was not found" % name)
        log = (folder / ("dataset-check-%s.log" % check)).read_text()
        demand(name + " is damaged" in log, "the log does not name %s:\n%s" % (name, log))
        shutil.rmtree(data / name.split("/")[0])
        array = cluster.submit("--array=" + last, SCRIPTS / "dataset.sbatch", "recipe.json", "data")
        check = cluster.submit("--dependency=afterok:" + array, SCRIPTS / "dataset_check.sbatch", "recipe.json", "data")
        demand(cluster.wait_for_end(check) == "COMPLETED", "a shard that was removed was not made again")
        demand_equal(data, one)
        state = cluster.wait_for_end(cluster.submit("--array=1-2", SCRIPTS / "dataset.sbatch", "recipe.json", "data"))
        demand(state == "FAILED", "an array that does not count from 0 was taken")
    except BaseException:
        cluster.logs()
        raise
    finally:
        cluster.end()


def check_parallel(folder, one):
    run(SCRIPTS / "dataset_parallel", "recipe.json", "data", TASKS, "--jobs", 2, cwd=folder)
    demand_equal(folder / "data", one)
    damage(folder / "data")
    answer = subprocess.run([SCRIPTS / "dataset_parallel", "recipe.json", "data", str(TASKS)], cwd=folder, check=False)
    demand(answer.returncode != 0, "damage was not found")


def check_snakemake(folder, one):
    command = ["snakemake", "--snakefile", SCRIPTS / "Snakefile", "--cores", 2, "--config", "recipe=recipe.json",
               "folder=data", "shares=%d" % TASKS]
    run(*command, cwd=folder)
    demand_equal(folder / "data", one)
    demand("Nothing to be done" in run(*command, cwd=folder), "what was there is made again")


CHECKS = {
    "slurm": (check_slurm, ("munged", "slurmctld", "slurmd", "sbatch", "scontrol", "scancel", "squeue", "sinfo")),
    "parallel": (check_parallel, ("parallel",)),
    "snakemake": (check_snakemake, ("snakemake",)),
}


def end_by_signal(number, _):
    raise Failure("signal %d: it has taken longer than %d s, or was stopped" % (number, MOST_SECONDS))


def main(arguments):
    if len(arguments) != 2 or arguments[0] not in CHECKS:
        sys.exit(__doc__)
    # Daemons of Debian's lie where only root's PATH leads.
    os.environ["PATH"] = os.pathsep.join([os.path.dirname(os.path.abspath(arguments[1])), os.environ["PATH"], "/usr/sbin"])
    check, programs = CHECKS[arguments[0]]
    missing = [program for program in programs if not shutil.which(program)]
    if missing or (arguments[0] == "slurm" and os.geteuid() != 0):
        print("Skipped: %s" % ("not installed: " + ", ".join(missing) if missing else "it needs root"))
        return 77
    for number in (signal.SIGALRM, signal.SIGTERM, signal.SIGINT):
        signal.signal(number, end_by_signal)
    signal.alarm(MOST_SECONDS)
    # mkdtemp's folders are their owner's alone, as munged demands.
    with tempfile.TemporaryDirectory(prefix="kr-cluster-") as name:
        folder = pathlib.Path(name)
        os.environ["KR_NODE_CACHE"] = os.environ["XDG_CACHE_HOME"] = str(folder / "cache")
        write_recipe(folder)
        try:
            run("krrender", "dataset", "recipe.json", "--out", "one", cwd=folder)
            run("krrender", "dataset", "recipe.json", "--out", "one", "--verify", "--merge", cwd=folder)
            check(folder, folder / "one")
        except Failure as failure:
            print("FAILED: %s" % failure)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
