"""farm/slurm/health-check against a stand-in for slurmctld: what it writes for each state of the list and of the node, and
that it writes nothing else. tests/farm/test_slurm.py shows it at work in a real Slurm."""

import json
import os
import pwd
import subprocess
import tempfile
import unittest
from pathlib import Path

import segment_bytes
from segment_bytes import ATTACHED, NAME, Segment, block, record

SOURCE = Path(os.environ["QZGPUINFO_SOURCE"])
BUILD = os.environ["QZGPUINFO_BUILD"]
USER = pwd.getpwuid(os.geteuid()).pw_name
RTX = record(b"NVIDIA GeForce RTX 4090", usage=5, total=2048, optix=1)
OTHER = record(b"NVIDIA L4", usage=5)
LOST = record(b"NVIDIA L4")
FEATURES = "qz_gpu,qz_nvcuda,qz_optix,qz_model_rtx4090,qz_vram_2g"
WRITES_FEATURES = f"AvailableFeatures={FEATURES} ActiveFeatures={FEATURES}"
STALE = f"qzgpuinfo: the GPU list of {USER} is stale"
NONE = f"qzgpuinfo: no GPU list of {USER}: "
MISSING = NONE + "there is no segment; the companion does not run"
ONE_OF_TWO, TWO_OF_TWO = (f"qzgpuinfo: lost {lost} of 2 GPUs" for lost in (1, 2))


class HealthCase(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "scontrol").symlink_to(SOURCE / "tests/system/scontrol_stub")
        self.node = self.folder / "node"
        self.settings = self.folder / "settings"
        self.segment = Segment()
        self.addCleanup(self.segment.__exit__)
        self.configure()
        self.set_node()

    def configure(self, companion="optional", text=""):
        """Writes the settings; `text` is added to them."""
        self.settings.write_text(f"user = {USER}\ncompanion = {companion}\ndirectory={self.segment.directory}\n"
                                 f"state = {self.folder}/state\npath = {self.folder}:{BUILD}\n{text}", encoding="utf-8")

    def set_node(self, features="", state="IDLE", reason="", name="q1", behind="", refuses=False, active=None):
        record_of_node = {"name": name, "available": features, "active": features if active is None else active,
                          "state": state, "reason": reason, "behind": behind, "refuses": refuses}
        self.node.write_text(json.dumps(record_of_node), encoding="utf-8")

    def publish(self, *gpus, age=0.0, flags=segment_bytes.WRITER):
        self.segment.detach()
        self.segment.write(block(gpus), age)
        self.segment.attach(*flags)

    def run_check(self):
        """Exit code, standard error, and the updates that reached the stand-in."""
        updates = Path(f"{self.node}.updates")
        updates.unlink(missing_ok=True)
        result = subprocess.run([SOURCE / "farm/slurm/health-check", self.settings], capture_output=True, text=True,
                                env={"SLURMD_NODENAME": "q1", "QZ_STUB_NODE": str(self.node)}, timeout=60, check=False)
        self.assertEqual(result.stdout, "")
        return result.returncode, result.stderr, updates.read_text("utf-8").splitlines() if updates.exists() else []

    def expect(self, *updates):
        """One check that writes these updates."""
        self.assertEqual(self.run_check(), (0, "", list(updates)))

    def drains(self, cause, checks=2):
        """The check of that number drains for the cause, the ones before it and after it write nothing."""
        for _ in range(checks - 1):
            self.expect()
        self.expect(f"State=DRAIN Reason={cause}")
        self.expect()

    def state(self):
        return json.loads(self.node.read_text("utf-8"))


class Features(HealthCase):
    def test_written_once(self):
        self.publish(RTX)
        self.expect(WRITES_FEATURES)
        self.expect()

    def test_written_again_when_they_are_lost(self):
        self.publish(RTX)
        self.set_node(FEATURES)
        self.expect()
        self.set_node("fast,cheap")
        self.expect(f"AvailableFeatures=fast,cheap,{FEATURES} ActiveFeatures=fast,cheap,{FEATURES}")

    def test_others_are_kept(self):
        self.publish(RTX)
        self.set_node("qz_old,fast,qz_gpu,xqz_1,qzx")
        self.expect(f"AvailableFeatures=fast,xqz_1,qzx,{FEATURES} ActiveFeatures=fast,xqz_1,qzx,{FEATURES}")
        self.expect()

    def test_what_is_available_and_what_is_active(self):
        self.publish(RTX)
        self.set_node(f"fast,{FEATURES}", active=FEATURES)
        self.expect()
        self.set_node(f"fast,{FEATURES}", active="")
        self.expect(f"AvailableFeatures=fast,{FEATURES} ActiveFeatures={FEATURES}")

    def test_all_gone_with_the_gpus(self):
        self.publish()
        self.set_node("fast,qz_gpu")
        self.expect("AvailableFeatures=fast ActiveFeatures=fast")
        self.set_node("qz_gpu")
        self.expect("AvailableFeatures= ActiveFeatures=")
        self.expect()

    def test_names_are_no_patterns(self):
        self.publish(RTX)
        self.set_node(f"*,{FEATURES}")
        self.expect()

    def test_on_a_node_that_somebody_else_drained(self):
        self.publish(RTX)
        self.set_node(state="IDLE+DRAIN", reason="new fan")
        self.expect(WRITES_FEATURES)
        self.assertEqual(self.state()["reason"], "new fan")

    def test_only_while_the_list_is_in_order(self):
        for gpus, age, flags in (([], 60, segment_bytes.WRITER), ([], 1, (ATTACHED,)), ([RTX, LOST], 0, segment_bytes.WRITER)):
            with self.subTest(gpus=len(gpus), age=age):
                self.publish(*gpus, age=age, flags=flags)
                self.set_node("qz_wished", state="IDLE+DRAIN", reason="new fan")
                self.expect()
                self.set_node("qz_wished")
                self.run_check()
                self.run_check()
                self.assertEqual(self.state()["available"], "qz_wished")

    def test_without_a_segment_they_stay(self):
        for companion in ("optional", "required"):
            self.configure(companion)
            self.set_node("qz_gpu", state="IDLE+DRAIN", reason="new fan")
            self.expect()


class Drains(HealthCase):
    def test_a_stale_list_at_the_second_check(self):
        self.publish(RTX, age=60)
        self.drains(STALE)

    def test_a_list_that_no_companion_keeps(self):
        self.publish(RTX, flags=(ATTACHED,))
        self.drains(STALE)

    def test_a_check_in_order_between_two_others(self):
        self.set_node(FEATURES)
        for _ in range(3):
            self.publish(RTX, age=60)
            self.expect()
            self.publish(RTX)
            self.expect()

    def test_a_lost_gpu_at_once(self):
        self.publish(RTX, LOST)
        self.drains(ONE_OF_TWO, checks=1)

    def test_no_segment_only_where_a_companion_is_required(self):
        for _ in range(3):
            self.expect()
        self.configure("required")
        self.drains(MISSING)

    def test_a_companion_is_optional_unless_the_settings_say_otherwise(self):
        self.settings.write_text(self.settings.read_text("utf-8").replace("companion = optional\n", ""), encoding="utf-8")
        for _ in range(3):
            self.expect()

    def test_a_list_that_cannot_be_used_only_where_a_companion_is_required(self):
        self.segment.write(block([RTX], version=1))
        for _ in range(3):
            self.expect()
        self.configure("required")
        self.drains(NONE + "what stands under the segment's name is not a GPU list of this version")

    def test_a_segment_of_another_kind_is_none(self):
        self.publish(RTX)
        os.chmod(self.segment.path, 0o644)
        for _ in range(3):
            self.expect()

    def test_where_the_first_check_cannot_be_noted(self):
        self.publish(RTX, age=60)
        (self.folder / "state").write_text("", encoding="utf-8")
        result = self.run_check()
        self.assertEqual((result[0], result[2]), (0, [f"State=DRAIN Reason={STALE}"]))

    def test_every_state_in_which_a_node_works(self):
        self.publish(RTX, LOST)
        for state in ("IDLE", "MIXED", "ALLOCATED", "IDLE+MAINTENANCE", "UNKNOWN", "IDLE+NOT_RESPONDING"):
            with self.subTest(state):
                self.set_node(state=state)
                self.expect(f"State=DRAIN Reason={ONE_OF_TWO}")

    def test_a_node_that_is_out_of_service_is_left_alone(self):
        self.publish(RTX, LOST)
        for state, reason in (("IDLE+DRAIN", "new fan"), ("DOWN", "Not responding"), ("DOWN*", ""), ("IDLE+FAIL", "x"),
                              ("DOWN+DRAIN", "qzgpuinfo is broken"), ("ALLOCATED+DRAIN", " qzgpuinfo: x")):
            with self.subTest(state):
                self.set_node(state=state, reason=reason)
                self.expect()

    def test_an_old_reason_on_a_working_node(self):
        """A reason outlives what it was for, when somebody resumes the node in another way."""
        self.publish(RTX, LOST)
        self.set_node(reason=TWO_OF_TWO)
        self.expect(f"State=DRAIN Reason={ONE_OF_TWO}")
        self.publish(RTX)
        self.set_node(FEATURES, reason=ONE_OF_TWO)
        self.expect()


class DrainedByUs(HealthCase):
    def drained(self, reason, **settings):
        self.set_node(FEATURES, state="IDLE+DRAIN", reason=reason, **settings)

    def test_resumed_when_the_list_is_fresh(self):
        self.publish(RTX)
        for reason in (STALE, MISSING):
            self.drained(reason)
            self.expect("State=UNDRAIN")
            self.expect()

    def test_resumed_when_every_gpu_is_back(self):
        self.publish(RTX, LOST)
        self.drained(ONE_OF_TWO)
        self.expect()
        self.publish(RTX)  # a new companion does not list a GPU that is dead
        self.expect()
        self.publish(RTX, OTHER)
        self.expect("State=UNDRAIN", f"AvailableFeatures={FEATURES.replace('rtx4090', 'rtx4090,qz_model_l4')} "
                    f"ActiveFeatures={FEATURES.replace('rtx4090', 'rtx4090,qz_model_l4')}")

    def test_features_stay_while_a_gpu_is_missing(self):
        self.publish(OTHER)
        self.drained(ONE_OF_TWO)
        self.expect()
        self.publish()
        self.expect(f"Reason={TWO_OF_TWO}")
        self.assertEqual(self.state()["available"], FEATURES)

    def test_more_gpus_than_before(self):
        self.publish(RTX, RTX, RTX)
        self.drained(ONE_OF_TWO)
        self.expect("State=UNDRAIN")

    def test_the_number_of_lost_gpus_follows(self):
        self.publish(LOST, LOST)
        self.drained(ONE_OF_TWO)
        self.expect(f"Reason={TWO_OF_TWO}")
        self.publish(RTX, LOST)
        self.expect(f"Reason={ONE_OF_TWO}")
        self.publish(RTX, LOST, LOST)
        self.expect("Reason=qzgpuinfo: lost 2 of 3 GPUs")

    def test_a_lost_gpu_replaces_another_cause(self):
        self.publish(RTX, LOST)
        self.drained(STALE)
        self.expect(f"Reason={ONE_OF_TWO}")

    def test_another_cause_does_not_replace_a_lost_gpu(self):
        self.configure("required")
        self.publish(RTX, age=60)
        self.drained(ONE_OF_TWO)
        self.expect()
        os.unlink(self.segment.path)
        self.expect()
        self.configure("optional")
        self.expect()

    def test_no_companion_where_none_is_required(self):
        self.drained(STALE)
        self.expect("State=UNDRAIN")

    def test_somebody_takes_over_by_another_reason(self):
        self.publish(RTX)
        self.drained("checked by hand, see qzgpuinfo: lost 1 of 2 GPUs")
        self.expect()

    def test_a_reason_that_is_followed_by_more(self):
        self.publish(RTX)
        for end in ("", " [root@now]"):
            self.drained("new fan", behind=f" Comment=x State=IDLE Reason=qzgpuinfo: lost 1 of 1 GPUs{end}")
            self.expect()
        self.drained(ONE_OF_TWO, behind=" Comment=[x@y] State=IDLE")
        self.expect()
        self.set_node(FEATURES, behind=" Comment=see the State=IDLE+DRAIN of it")
        self.publish(LOST)
        self.expect("State=DRAIN Reason=qzgpuinfo: lost 1 of 1 GPUs")

    def test_a_node_that_is_down_as_well(self):
        self.publish(RTX)
        self.set_node(FEATURES, state="DOWN+DRAIN", reason=STALE)
        self.expect("State=UNDRAIN")

    def test_a_reason_without_a_drain(self):
        self.publish(RTX)
        self.set_node(FEATURES, state="IDLE", reason=STALE)
        self.expect()


class Setup(HealthCase):
    """A fault of the setup is said, ends the check with 1, and changes no node."""

    def expect_failure(self, pattern):
        code, error, updates = self.run_check()
        self.assertEqual((code, updates), (1, []))
        # Slurm's own message may come before.
        self.assertRegex(error, rf"(\A|\n)qzgpuinfo: [^\n]*{pattern}[^\n]*\n\Z")

    def test_settings(self):
        self.publish(RTX)
        for text, pattern in (("companion = yes\n", "'required' or 'optional', not 'yes'"), ("user\n", "not a setting: user"),
                              ("color = red\n", "unknown setting: color"), ("user = \n", "not a setting: user = "),
                              ("user = no-such-user", "unknown user 'no-such-user'")):
            with self.subTest(text):
                self.configure(text=text)
                self.expect_failure(pattern)
        self.settings.write_text(f"path = {self.folder}:{BUILD}\n", encoding="utf-8")
        self.expect_failure("no user")
        self.settings.unlink()
        self.expect_failure("cannot read ")

    def test_comments_and_blanks(self):
        self.publish(RTX)
        self.configure(text=f"\n  # a comment = here\n\t\n   user   =   {USER}  \n# companion = yes")
        self.expect(WRITES_FEATURES)

    def test_a_segment_in_a_folder_with_blanks(self):
        folder = self.folder / "a  folder"
        folder.mkdir()
        self.publish(RTX)
        os.rename(self.segment.path, folder / NAME)
        self.configure(text=f"directory = {folder}\n")
        self.expect(WRITES_FEATURES)

    def test_a_node_that_slurmctld_does_not_know(self):
        self.publish(RTX)
        self.set_node(name="q2")
        self.expect_failure("slurmctld does not answer for node q1")

    def test_an_answer_without_a_state(self):
        self.publish(RTX)
        self.set_node(state="")
        self.expect_failure("cannot read slurmctld's answer for node q1")

    def test_slurmctld_refuses(self):
        self.publish(RTX)
        self.set_node(refuses=True)
        self.expect_failure("slurmctld refused: AvailableFeatures=")

    def test_no_qzgpustatus(self):
        self.settings.write_text(self.settings.read_text("utf-8").replace(f":{BUILD}", ""), encoding="utf-8")
        self.expect_failure("qzGpuStatus: ")


if __name__ == "__main__":
    unittest.main(verbosity=2)
