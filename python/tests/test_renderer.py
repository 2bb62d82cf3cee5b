"""What is drawn, and into what."""

import logging
import math
import pickle
import unittest
from typing import Any

import numpy as np
import numpy.typing as npt
import support

import krrendcore as kr

EVERYTHING: Any = {"color": True, "depth": True, "labels": True, "normals": True}
SHAPES = {"color": (48, 64, 3), "depth": (48, 64), "labels": (48, 64), "normals": (48, 64, 3)}
TYPES = {"color": np.uint8, "depth": np.float32, "labels": np.uint32, "normals": np.float32}


def arrays(*leading: int) -> dict[str, npt.NDArray[Any]]:
    return {kind: np.full((*leading, *shape), 7, TYPES[kind]) for kind, shape in SHAPES.items()}


def points(frame: kr.Frame) -> npt.NDArray[np.float64]:
    """Where the surface behind each pixel is: (H, W, 3), world frame."""
    height, width = frame.depth.shape
    u, v = np.meshgrid(np.arange(width) + 0.5, np.arange(height) + 0.5)
    rays = np.stack([u, v, np.ones_like(u)], -1) @ np.linalg.inv(frame.K).T
    camera = rays * np.where(np.isfinite(frame.depth), frame.depth, np.nan)[..., None]
    return camera @ frame.T_world_camera[:3, :3].T + frame.T_world_camera[:3, 3]


class TestFrame(support.Test):
    def renderer(self, **options: Any) -> kr.Renderer:
        renderer = kr.Renderer(self.robot(), 64, 48, **options)
        self.addCleanup(renderer.close)
        return renderer

    def test_images_have_the_shapes_and_types_that_are_told(self) -> None:
        renderer = self.renderer()
        frame = renderer.render({"swing": 0.4}, **EVERYTHING)
        renderer.close()
        for kind, shape in SHAPES.items():
            image = getattr(frame, kind)
            self.assertEqual((image.shape, image.dtype, image.flags.c_contiguous), (shape, TYPES[kind], True), kind)
        self.assertEqual(frame._repr_png_()[:8], b"\x89PNG\r\n\x1a\n")
        whole = frame.to_dict()
        self.assertEqual((whole["picture"]["width"], whole["picture"]["rowOrder"]), (64, "top row first"))
        self.assertEqual(whole["labels"][1], {"id": 2, "manipulator": "r", "link": "bar", "shape": 0})
        with self.assertRaisesRegex(AttributeError, "depth=True"):
            self.renderer().render().depth

    def test_pixels_lie_where_camera_and_depth_say(self) -> None:
        """Depths taken back into the world lie on the boxes: rows, columns, K, pose and metres all fit together."""
        cameras = {
            "fit": kr.Camera.fit(self.robot()),
            "look_at": kr.Camera.look_at((2.0, -1.5, 2.5), (0.3, 0.0, 0.6), field_of_view=1.0),
            "K": kr.Camera([[60, 0, 20], [0, 70, 30], [0, 0, 1]], [[0, 0, -1, 3], [1, 0, 0, 0.2], [0, -1, 0, 0.7], [0, 0, 0, 1]]),
        }
        for (name, camera), kind in ((item, kind) for item in cameras.items() for kind in ("planar", "euclidean")):
            with self.subTest(name=name, kind=kind):
                renderer = self.renderer(camera=camera, depth=kind, normals="world")
                frame = renderer.render({"swing": 0.5}, **EVERYTHING)
                if kind == "euclidean":
                    u, v = np.meshgrid(np.arange(64) + 0.5, np.arange(48) + 0.5)
                    (fx, _, cx), (_, fy, cy), _ = frame.K
                    frame.depth[:] /= np.sqrt(((u - cx) / fx) ** 2 + ((v - cy) / fy) ** 2 + 1)
                world = points(frame)
                where = self.robot().fk({"swing": 0.5})
                boxes = {"base": ([0, 0, 0.1], [0.2, 0.2, 0.1]), "bar": ([0.5, 0, 0], [0.5, 0.1, 0.05])}
                for label, part in renderer.labels.items():
                    seen = frame.labels == label
                    if part.link not in boxes:
                        self.assertFalse(seen.any())
                        continue
                    middle, half = boxes[part.link]
                    inverse = np.linalg.inv(where[part.link])
                    local = world[seen] @ inverse[:3, :3].T + inverse[:3, 3] - middle
                    # On the surface: inside in all directions, and at the very side in one.
                    self.assertGreater(seen.sum(), 20)
                    np.testing.assert_allclose(np.max(np.abs(local) / half, axis=1), 1.0, atol=5e-3)
                    # The normal is that side's.
                    normals = frame.normals[seen] @ inverse[:3, :3].T
                    side = np.argmax(np.abs(local) / half, axis=1)
                    along = np.take_along_axis(normals * np.sign(local), side[:, None], 1)
                    self.assertGreater(np.median(along), 0.999)
                background = frame.labels == 0
                self.assertTrue(np.isinf(frame.depth[background]).all() and (frame.normals[background] == 0).all())
                self.assertTrue(np.isfinite(frame.depth[~background]).all())

    def test_colours_are_upright_and_those_of_the_file(self) -> None:
        frame = self.renderer(camera=kr.Camera.look_at((0, -4, 0.6), (0, 0, 0.6))).render(color=True, labels=True)
        # The base below is red, the bar above it and to the right is green.
        for label, channel in ((1, 0), (2, 1)):
            rows, columns = np.nonzero(frame.labels == label)
            inside = frame.color[int(np.median(rows)), int(np.median(columns))]
            self.assertEqual(int(np.argmax(inside)), channel)
        self.assertGreater(np.mean(np.nonzero(frame.labels == 1)[0]), np.mean(np.nonzero(frame.labels == 2)[0]))
        self.assertGreater(np.mean(np.nonzero(frame.labels == 2)[1]), 32)

    def test_a_frame_depends_on_its_arguments_alone(self) -> None:
        renderer = self.renderer()
        other = kr.Camera.look_at((3, 3, 3))
        first = renderer.render(**EVERYTHING)
        moved = renderer.render({"swing": 1.0}, poses={"r": kr.pose(z=-0.2)}, camera=other, **EVERYTHING)
        again = renderer.render(**EVERYTHING)
        # A second window on the same robot, while the first is open.
        second = self.renderer().render(**EVERYTHING)
        for kind in SHAPES:
            self.assertTrue(np.array_equal(getattr(first, kind), getattr(again, kind)), kind)
            self.assertTrue(np.array_equal(getattr(first, kind), getattr(second, kind)), kind)
            self.assertFalse(np.array_equal(getattr(first, kind), getattr(moved, kind)), kind)
        np.testing.assert_array_equal(first.K, again.K)

    def test_what_bends_bends_for_each_renderer_by_itself(self) -> None:
        hose = kr.load(support.ROOT / "samples" / "hose.xml")
        camera = kr.Camera.fit(hose)
        q = np.linspace(hose.joints[0].lower, hose.joints[0].upper, 3)[:, None]
        with kr.Renderer(hose, 64, 48, camera=camera) as renderer:
            alone = renderer.render_batch(q).color
        with kr.Renderer(hose, 64, 48, camera=camera) as one, kr.Renderer(kr.Scene([hose]), 64, 48, camera=camera) as other:
            for i in range(3):
                np.testing.assert_array_equal(one.render(q[i]).color, alone[i])
                np.testing.assert_array_equal(other.render(q[2 - i]).color, alone[2 - i])
        self.assertFalse(np.array_equal(alone[0], alone[2]))

    def test_out_is_written_in_place_or_refused(self) -> None:
        renderer = self.renderer()
        out = arrays()
        frame = renderer.render({"swing": 0.4}, out=out)
        plain = renderer.render({"swing": 0.4}, **EVERYTHING)
        for kind, image in out.items():
            self.assertIs(getattr(frame, kind), image)
            np.testing.assert_array_equal(image, getattr(plain, kind))
        color = arrays()["color"]
        read_only = color.copy()
        read_only.flags.writeable = False
        unaligned = np.frombuffer(bytearray(48 * 64 * 4 + 1), np.uint8)[1:].view(np.float32).reshape(48, 64)
        for bad, text in (
            ({"color": color[:, ::-1]}, "not C-contiguous"),
            ({"color": color.astype(np.int8)}, "the type int8 instead of uint8"),
            ({"color": color[:40].copy()}, r"the shape \(40, 64, 3\) instead of \(48, 64, 3\)"),
            ({"color": read_only}, "read-only"),
            ({"color": color.tolist()}, "no numpy array"),
            ({"depth": np.zeros((48, 64), ">f4")}, "the type >f4"),
            ({"depth": unaligned}, "not aligned"),
            ({"colour": color}, "the kinds of image are"),
            ({"color": None}, "no numpy array"),
        ):
            with self.subTest(text=text), self.assertRaisesRegex(ValueError, text):
                renderer.render(out=bad)  # type: ignore[arg-type]
        self.assertTrue((color == 7).all())
        with self.assertRaisesRegex(ValueError, "nothing is to be drawn"):
            renderer.render(color=False)

    def test_a_batch_is_its_frames(self) -> None:
        renderer = self.renderer()
        q = np.array([[0.0, 0.1], [0.7, 0.0], [-0.5, 0.3]])
        poses = np.stack([kr.pose(x=0.1 * i) for i in range(3)])
        out = arrays(3)
        batch = renderer.render_batch(q[:, ::-1], joints=["slide", "swing"], poses={"r": poses}, out=out)
        self.assertEqual(len(batch), 3)
        for i in range(3):
            frame = renderer.render(q[i], poses={"r": poses[i]}, **EVERYTHING)
            for kind in SHAPES:
                np.testing.assert_array_equal(out[kind][i], getattr(frame, kind))
            np.testing.assert_array_equal(batch.K[i], frame.K)
            self.assertEqual(batch[i].to_dict()["manipulators"], frame.to_dict()["manipulators"])
        cameras = [kr.Camera.look_at((3, i, 1)) for i in range(2)]
        self.assertAlmostEqual(renderer.render_batch(np.zeros((2, 2)), cameras=cameras).T_world_camera[1, 1, 3], 1.0, 6)
        self.assertEqual(renderer.render_batch(np.zeros((0, 2))).color.shape, (0, 48, 64, 3))
        for arguments, text in (
            ({"q": np.zeros((2, 3))}, "its last dimension is of 2 joints"),
            ({"q": np.zeros(2)}, r"instead of \(N, 2\)"),
            ({"q": q, "cameras": cameras}, "2 cameras for 3 frames"),
            ({"q": q, "poses": {"r": poses[:2]}}, r"instead of \(3, 4, 4\)"),
            ({"q": q, "out": arrays(2)}, r"instead of \(3, 48, 64, 3\)"),
        ):
            with self.subTest(text=text), self.assertRaisesRegex(ValueError, text):
                renderer.render_batch(**arguments)  # type: ignore[arg-type]

    def test_picks_and_masks_tell_what_the_frame_shows(self) -> None:
        renderer = self.renderer(camera=kr.Camera.look_at((0.3, -1, 4), (0.2, 0, 0)))
        frame = renderer.render(color=False, depth=True, labels=True)
        y, x = (int(np.median(axis)) for axis in np.nonzero(frame.labels == 2))
        pick = renderer.pick(x, y)
        assert pick is not None
        self.assertEqual((pick.robot, pick.link), ("r", "bar"))
        np.testing.assert_allclose(pick.point_world, points(frame)[y, x], atol=1e-3)
        np.testing.assert_allclose(np.array(pick.point_link) + [0, 0, 1], pick.point_world, atol=1e-3)
        self.assertIsNone(renderer.pick(0, 0))
        masks = renderer.amodal_masks()
        self.assertEqual((masks.shape, masks.dtype), ((4, 48, 64), np.bool_))
        # The bar lies over the base, which is whole in its own mask.
        shares = frame.visible_shares(masks)
        self.assertEqual(shares[1], 1.0)
        self.assertTrue(0.2 < shares[0] < 0.9 and math.isnan(shares[2]))
        self.assertTrue(masks[0][frame.labels == 1].all())
        for where in ((-1, 0), (64, 0), (0, 48)):
            with self.assertRaisesRegex(ValueError, "is not in the picture"):
                renderer.pick(*where)

    def test_label_levels_and_several_robots(self) -> None:
        robot = self.robot()
        scene = kr.Scene({"left": (robot, kr.pose(y=0.6)), "right": (robot, kr.pose(y=-0.6))})
        found = {}
        for level in ("robot", "link", "shape"):
            with kr.Renderer(scene, 64, 48, label_level=level) as renderer:
                frame = renderer.render(labels=True)
                found[level] = {renderer.labels[int(label)] for label in np.unique(frame.labels) if label}
        self.assertEqual(found["robot"], {kr.Label("left", "", 0), kr.Label("right", "", 0)})
        self.assertEqual(found["link"], {kr.Label(side, link, 0) for side in ("left", "right") for link in ("base", "bar")})
        self.assertEqual(found["shape"], found["link"])

    def test_looks(self) -> None:
        """Light, background, aids, highlights and levels of detail reach the window."""
        plain = self.renderer().render().color
        black = self.renderer(background=(0, 0, 1), ambient=(0, 0, 0), lights=[]).render().color
        self.assertEqual(set(map(tuple, black.reshape(-1, 3)[[0, -1]])), {(0, 0, 255)})
        self.assertLess(black[..., :2].max(), 3)
        lamp = kr.Light(position=(0.0, 0.0, 1.0), specular=(0, 0, 0))
        lit = self.renderer(background=(0, 0, 1), ambient=(0, 0, 0), lights=[lamp]).render().color
        self.assertGreater(lit[..., :2].max(), 200)
        for options in ({"aids": ["axes"]}, {"highlight": ["bar"]}, {"samples": 1}):
            with self.subTest(options=options):
                self.assertFalse(np.array_equal(self.renderer(**options).render().color, plain))
        with self.assertLogs("krrendcore", logging.WARNING) as log:
            self.renderer(highlight=["hook"])
        self.assertIn("hook", log.output[0])
        for options, error, text in (
            ({"aids": ["axis"]}, ValueError, "there is no aid"),
            ({"highlight": ["bra"]}, kr.UnknownNameError, "did you mean"),
            ({"samples": 2}, ValueError, "samples are"),
            ({"background": (0, 0, 2)}, ValueError, "background"),
            ({"label_level": "joint"}, ValueError, "label_level"),
            ({"depth": "far"}, ValueError, "planar or euclidean"),
            ({"level_of_detail": -1}, ValueError, "level_of_detail"),
            ({"lights": [kr.Light(attenuation=(1.0, -1.0, 0.0))]}, ValueError, "no such light: .*finite numbers"),
            ({"lights": [kr.Light()] * 9}, ValueError, "9 lights, 8 at most"),
        ):
            with self.subTest(options=options), self.assertRaisesRegex(error, text):
                self.renderer(**options)
        for size, error in (((0, 10), ValueError), ((10, -1), ValueError), ((10**6, 10**6), kr.RenderError), ((64.0, 48), TypeError)):
            with self.subTest(size=size), self.assertRaises(error):
                kr.Renderer(self.robot(), *size)  # type: ignore[arg-type]

    def test_cameras(self) -> None:
        robot = self.robot()
        pose = np.array([[0, 0, -1, 3], [1, 0, 0, 0.2], [0, -1, 0, 0.7], [0, 0, 0, 1.0]])
        camera = kr.Camera([[120, 0, 40], [0, 140, 60], [0, 0, 1]], pose, size=(128, 96))
        frame = self.renderer(camera=camera).render()
        np.testing.assert_allclose(frame.K, [[60, 0, 20], [0, 70, 30], [0, 0, 1]])
        np.testing.assert_allclose(frame.T_world_camera, pose, atol=1e-9)
        for camera in (camera, kr.Camera.look_at((1, 2, 3)), kr.Camera.fit(robot, {"swing": 1.0}, azimuth=1.0)):
            again = self.renderer(camera=pickle.loads(pickle.dumps(camera))).render()
            np.testing.assert_array_equal(again.color, self.renderer(camera=camera).render().color)
        # Everything fits: no pixel at the border, whatever the shape of the picture.
        motion = np.stack([np.linspace(-1, 2, 5), np.zeros(5)], 1)
        for size in ((200, 50), (50, 200)):
            with kr.Renderer(robot, *size, camera=kr.Camera.fit(robot, motion)) as renderer:
                labels = np.max(renderer.render_batch(motion, labels=True).labels, axis=0)
                self.assertFalse(labels[0].any() or labels[-1].any() or labels[:, 0].any() or labels[:, -1].any())
        for wrong in (
            lambda: kr.Camera.look_at((0, 0, 0), (0, 0, 0)),
            lambda: kr.Camera.look_at((0, 0, 1), field_of_view=4.0),
            lambda: kr.Camera(np.eye(4), np.eye(4)),
            lambda: kr.Camera([[1, 2, 3], [0, 1, 3], [0, 0, 1]], np.eye(4)),
            lambda: kr.Camera([[-1, 0, 3], [0, 1, 3], [0, 0, 1]], np.eye(4)),
            lambda: kr.Camera([[1, 0, 3], [0, 1, 3], [0, 0, 1]], np.ones((4, 4))),
        ):
            with self.assertRaises(ValueError):
                wrong()


if __name__ == "__main__":
    unittest.main()
