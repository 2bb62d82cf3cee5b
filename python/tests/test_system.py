"""Robots and scenes: reading, names, kinematics, errors, messages. No context is needed."""

import ast
import math
import pickle
import re
import unittest

import numpy as np
import support

import krrendcore as kr
from krrendcore import _core


class TestRobot(support.Test):
    def test_joints_are_those_that_can_be_set(self) -> None:
        robot = self.robot()
        self.assertEqual(robot.links, ("base", "bar", "hook", "twin"))
        self.assertEqual(robot.joints, (kr.Joint("swing", "revolute", -1, 2), kr.Joint("slide", "prismatic", -1, 2)))
        self.assertEqual((robot.name, robot.robots), ("r", ("r",)))
        self.assertEqual(robot.report["counts"]["mimicJoints"], 1)

    def test_kinematics_worked_out_by_hand(self) -> None:
        robot = self.robot()
        for q in ({"swing": math.pi / 2, "slide": 0.5}, [math.pi / 2, 0.5], np.array([math.pi / 2, 0.5], np.float32)):
            with self.subTest(q=q):
                where = robot.fk(q)
                self.assertEqual(list(where), list(robot.links))
                # A quarter turn to the left takes x to y.
                np.testing.assert_allclose(where["hook"] @ [0, 0, 0, 1], [0, 1, 1.5, 1], atol=1e-6)
                np.testing.assert_allclose(where["bar"][:3, :3], [[0, -1, 0], [1, 0, 0], [0, 0, 1]], atol=1e-6)
                # The follower makes half a turn.
                np.testing.assert_allclose(where["twin"][:3, 0], [-1, 0, 0], atol=1e-6)
        moved = robot.fk({"swing": math.pi / 2}, poses={"r": kr.pose(x=3.0)})
        np.testing.assert_allclose(moved["hook"] @ [0, 0, 0, 1], [3, 1, 1, 1], atol=1e-6)
        # Nothing of one call is left in the next.
        np.testing.assert_allclose(robot.fk()["hook"] @ [0, 0, 0, 1], [1, 0, 1, 1], atol=1e-12)

    def test_what_is_wrong_is_told_in_a_sentence(self) -> None:
        robot = self.robot()
        for q, error, text in (
            ({"swimg": 1.0}, kr.UnknownNameError, 'there is no joint "swimg"; did you mean swing'),
            ({"copy": 1.0}, kr.UnknownNameError, 'joint "copy" follows joint "swing"'),
            ({"bar": 1.0}, kr.UnknownNameError, 'the joint of that link is "swing"'),
            ({"swing": math.nan}, ValueError, 'the position of joint "swing" is not finite'),
            ([1.0], ValueError, r"q has the shape \(1,\)"),
            (1.0, ValueError, r"its last dimension is of 2 joints"),
        ):
            with self.subTest(q=q), self.assertRaisesRegex(error, text):
                robot.fk(q)  # type: ignore[arg-type]
        for pose, text in ((np.eye(3), "is no 4 x 4 matrix"), (2 * np.eye(4), "is no pose"), (np.full((4, 4), np.nan), "is no pose")):
            with self.subTest(pose=pose), self.assertRaisesRegex(ValueError, text):
                robot.fk(poses={"r": pose})
        self.assertTrue(issubclass(kr.UnknownNameError, KeyError))

    def test_files_that_are_none(self) -> None:
        with self.assertRaisesRegex(FileNotFoundError, "none.urdf: there is no such file"):
            kr.load(self.folder / "none.urdf")
        with self.assertRaisesRegex(kr.FormatError, "neither a URDF, a native system file nor a mesh"):
            kr.load(self.write("a.urdf", "<sdf/>"))
        with self.assertRaisesRegex(ValueError, "null"):
            kr.load("a\0b")
        with self.assertRaises(kr.Error):
            kr.load(self.folder)

    def test_meshes_and_native_files_are_read_as_well(self) -> None:
        mesh = kr.load(support.MESH)
        self.assertEqual((mesh.name, mesh.links, mesh.joints), ("link_1", ("link_1",), ()))
        arms = kr.load(support.ROOT / "samples" / "dual_arm_base.xml")
        self.assertGreaterEqual(len(arms.robots) * len(arms.joints), 2)

    def test_comes_out_of_a_pickle_as_it_went_in(self) -> None:
        robot = self.robot()
        scene = kr.Scene({"a": robot, "b": (robot, kr.pose(y=1.0))})
        for whole in (robot, scene):
            again = pickle.loads(pickle.dumps(whole))
            self.assertEqual((again.joints, again.robots), (whole.joints, whole.robots))
            np.testing.assert_array_equal(list(again.fk().values()), list(whole.fk().values()))


class TestScene(support.Test):
    def test_names_places_and_joints_of_several_robots(self) -> None:
        robot, mesh = self.robot(), kr.load(support.MESH)
        scene = kr.Scene([robot, (robot, kr.pose(y=2.0, yaw=math.pi / 2)), mesh])
        self.assertEqual(scene.robots, ("r", "r_2", "link_1"))
        self.assertEqual([joint.name for joint in scene.joints], ["r/swing", "r/slide", "r_2/swing", "r_2/slide"])
        self.assertIn("r_2/base", scene.links)
        where = scene.fk({"r_2/slide": 0.25})
        np.testing.assert_allclose(where["r/hook"][:3, 3], [1, 0, 1], atol=1e-9)
        np.testing.assert_allclose(where["r_2/hook"][:3, 3], [0, 3, 1.25], atol=1e-9)
        with self.assertRaisesRegex(kr.UnknownNameError, "in 2 manipulators"):
            scene.fk({"swing": 0.1})
        # Without another one of its name a joint's own will do.
        self.assertEqual(len(kr.Scene([robot, mesh]).fk({"swing": 0.1})), 5)
        moved = scene.fk(poses={"r_2": np.eye(4)})
        np.testing.assert_allclose(moved["r_2/hook"], where["r/hook"], atol=1e-12)

    def test_refuses_what_is_no_scene(self) -> None:
        with self.assertRaises(ValueError):
            kr.Scene([])
        with self.assertRaisesRegex(ValueError, 'the pose of "r" is no pose'):
            kr.Scene([(self.robot(), np.zeros((4, 4)))])
        with self.assertRaisesRegex(kr.UnknownNameError, 'there is no robot "q" here'):
            kr.Scene([self.robot()]).fk(poses={"q": np.eye(4)})


class TestStub(unittest.TestCase):
    def test_arguments_are_called_what_the_stub_calls_them(self) -> None:
        """stubtest compares names and types of objects; the arguments of compiled functions stand in their docstrings."""
        stub = ast.parse((support.ROOT / "python" / "krrendcore" / "_core.pyi").read_text())
        functions = [(_core, node) for node in stub.body if isinstance(node, ast.FunctionDef)]
        for owner in (node for node in stub.body if isinstance(node, ast.ClassDef)):
            functions += [(getattr(_core, owner.name), node) for node in owner.body if isinstance(node, ast.FunctionDef)]
        count = 0
        for place, node in functions:
            if node.decorator_list:
                continue  # a property
            compiled = (getattr(place, node.name).__doc__ or "").split("->")[0]
            names = [name for name in re.findall(r"(\w+): ", compiled) if name not in ("self", "arg0")]
            stated = [argument.arg for argument in node.args.args if argument.arg != "self"]
            self.assertEqual(names, stated, f"{place.__name__}.{node.name}: {compiled}")
            count += 1
        self.assertGreater(count, 15)


class TestMessages(support.Test):
    def test_go_to_the_logger_and_failures_are_told_once(self) -> None:
        text = support.two_links().replace("<box size='1 0.2 0.1'/>", "<mesh filename='none.stl'/>")
        with self.assertLogs("krrendcore", "WARNING") as log:
            robot = kr.load(self.write("a.urdf", text))
        self.assertEqual(len(log.output), 1, log.output)
        self.assertIn("1 mesh", log.output[0])
        self.assertTrue(any("none.stl" in warning["text"] for warning in robot.report["warnings"]))
        with self.assertNoLogs("krrendcore"), self.assertRaises(kr.FormatError):
            kr.load(self.write("b.urdf", "<robot/>"))

    def test_importing_changes_nothing(self) -> None:
        # A client of the library in the same process keeps its sink until something of this package is called.
        self.run_python(
            "import os, threading; before = set(os.environ), threading.active_count()\n"
            "import krrendcore\n"
            "assert before == (set(os.environ), threading.active_count())\n"
        )


if __name__ == "__main__":
    unittest.main()
