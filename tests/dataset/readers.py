"""Reads data sets by what is published of their formats, and nothing else: no word in here is taken from the writers.

WebDataset, BOP (scene-wise) and COCO (instances), and the PNG, NPY and PLY files in them. All readers give samples of one form,
so that one set of checks holds for each:

    number            of the image
    color             height x width x 3 bytes, or None
    depth             height x width, m along the camera's z axis, not finite where nothing was measured; or None
    depth_quantum     m: what the depth may differ from the true one by rounding, or 0
    labels            height x width integers, 0 for none; or None
    normals           height x width x 3; or None
    K                 3 x 3, x right, y down; integer coordinates are pixel centres; or None
    world_to_camera   (R, t), m; or None
    objects           list of Object
"""
import io
import json
import os
import re
import struct
import tarfile
import zlib

import numpy as np


class FormatError(Exception):
    """What a file holds is not what its format asks for."""


def require(condition, message, *values):
    if not condition:
        raise FormatError(message % values)


class Sample:
    def __init__(self, number):
        self.number = number
        self.color = self.depth = self.labels = self.normals = self.K = self.world_to_camera = None
        self.depth_quantum = 0.0
        self.objects = []


class Model:
    """The surface of an object: box (smallest corner, size) and diameter, m; vertices, faces of three of them."""

    def __init__(self, low, size, diameter, vertices, faces):
        self.low, self.size, self.diameter, self.vertices, self.faces = low, size, diameter, vertices, faces


class Object:
    """An instance in an image. Masks are height x width booleans, boxes x, y, width, height in pixels, or None."""

    def __init__(self, category):
        self.category = category
        self.label = self.R = self.t = self.mask = self.visible_mask = self.box = self.visible_box = None
        self.info = {}


# PNG (ISO/IEC 15948).

def unfilter(kind, row, above, step):
    """One row of the image from what was stored (clause 9.2); all arithmetic modulo 256."""
    if kind == 0:
        return row
    if kind == 1:
        return np.cumsum(row.reshape(-1, step), axis=0, dtype=np.uint8).reshape(-1)
    if kind == 2:
        return row + above
    result = np.zeros_like(row)
    for i, value in enumerate(row):
        left = int(result[i - step]) if i >= step else 0
        corner = int(above[i - step]) if i >= step else 0
        up = int(above[i])
        if kind == 3:
            guess = (left + up) // 2
        else:
            require(kind == 4, "a row has filter %d", kind)
            estimate = left + up - corner
            guess = min((left, up, corner), key=lambda known: abs(estimate - known)) # the first of equals
        result[i] = (int(value) + guess) & 255
    return result


def read_png(data):
    """height x width (grey) or height x width x channels; uint8 or uint16."""
    require(data[:8] == b"\x89PNG\r\n\x1a\n", "no PNG signature")
    place, header, packed, ended = 8, None, b"", False
    while place < len(data):
        require(not ended, "something behind IEND")
        size, name = struct.unpack(">I4s", data[place:place + 8])
        body = data[place + 8:place + 8 + size]
        require(len(body) == size, "a chunk is cut off")
        checksum, = struct.unpack(">I", data[place + 8 + size:place + 12 + size])
        require(checksum == zlib.crc32(name + body), "checksum of chunk %r", name)
        place += 12 + size
        if name == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif name == b"IDAT":
            packed += body
        elif name == b"IEND":
            ended = True
    require(ended and header is not None, "no IHDR or no IEND")
    width, height, bits, color_type, compression, filtering, interlace = header
    require(bits in (8, 16) and color_type in (0, 2) and (compression, filtering, interlace) == (0, 0, 0),
            "a PNG of an unexpected kind: %s", header)
    channels = {0: 1, 2: 3}[color_type]
    step = channels * bits // 8
    raw = np.frombuffer(zlib.decompress(packed), np.uint8)
    require(raw.size == height * (1 + width * step), "%d bytes for %d x %d pixels", raw.size, width, height)
    rows = raw.reshape(height, 1 + width * step)
    pixels = np.zeros((height, width * step), np.uint8)
    above = np.zeros(width * step, np.uint8)
    for y in range(height):
        above = pixels[y] = unfilter(int(rows[y, 0]), rows[y, 1:], above, step)
    values = pixels.view(">u2").astype(np.uint16) if bits == 16 else pixels
    return values.reshape((height, width) if channels == 1 else (height, width, channels))


def read_mask(data):
    """Masks are 8-bit grey images of two values."""
    image = read_png(data)
    require(image.ndim == 2 and image.dtype == np.uint8, "a mask is a grey image of 8 bits")
    require(set(np.unique(image)) <= {0, 255}, "a mask holds %s", np.unique(image))
    return image == 255


def read_npy(data):
    return np.load(io.BytesIO(data), allow_pickle=False)


def load(path):
    with open(path, "rb") as file:
        return file.read()


def load_json(path):
    return json.loads(load(path).decode("utf-8"))


# COCO: https://cocodataset.org/#format-data, "Object Detection", and the remark there on RLE.

def read_rle(rle):
    """height x width booleans. Runs of zeros and ones by turns, zeros first, down the columns."""
    height, width = rle["size"]
    counts = rle["counts"]
    require(isinstance(counts, list), "counts are a list of whole numbers when they are not compressed")
    require(all(isinstance(n, int) and n >= 0 for n in counts), "counts are whole numbers")
    require(sum(counts) == height * width, "runs of %d pixels for %d x %d", sum(counts), width, height)
    # Only the run of zeros at the beginning may be empty in the shortest form.
    require(0 not in counts[1:], "an empty run")
    values = np.repeat(np.arange(len(counts)) % 2 == 1, counts)
    return values.reshape(width, height).T


def read_coco(annotation_file):
    """Samples by number, and names of categories by id. File names count from the folder of the annotation file."""
    folder = os.path.dirname(annotation_file)
    tree = load_json(annotation_file)
    for member in ("info", "licenses", "images", "annotations", "categories"):
        require(member in tree, "no member %s", member)
    categories = {}
    for category in tree["categories"]:
        require(category["id"] >= 1 and category["id"] not in categories, "category id %s", category["id"])
        require(isinstance(category["name"], str) and isinstance(category["supercategory"], str), "names are texts")
        categories[category["id"]] = category["name"]
    require(len(set(categories.values())) == len(categories), "two categories have one name")
    samples = {}
    for image in tree["images"]:
        require(isinstance(image["id"], int) and image["id"] not in samples, "image id %s", image["id"])
        sample = samples[image["id"]] = Sample(image["id"])
        require(not os.path.isabs(image["file_name"]), "an absolute file name")
        sample.color = read_png(load(os.path.join(folder, image["file_name"])))
        require(sample.color.shape == (image["height"], image["width"], 3), "the size of image %d", image["id"])
    ids = set()
    for annotation in tree["annotations"]:
        # 0 stands for "no match" in evaluations.
        require(annotation["id"] >= 1 and annotation["id"] not in ids, "annotation id %s", annotation["id"])
        ids.add(annotation["id"])
        require(annotation["category_id"] in categories, "category_id %s", annotation["category_id"])
        require(annotation["image_id"] in samples, "image_id %s", annotation["image_id"])
        require(annotation["iscrowd"] == 0, "each annotation is one instance")
        sample = samples[annotation["image_id"]]
        thing = Object(annotation["category_id"])
        thing.visible_mask = read_rle(annotation["segmentation"])
        require(thing.visible_mask.shape == sample.color.shape[:2], "the mask is of another size than its image")
        thing.visible_box = annotation["bbox"]
        thing.info = annotation
        require(annotation["area"] == thing.visible_mask.sum(), "area %s", annotation["area"])
        require(thing.visible_box == box_of(thing.visible_mask), "bbox %s", thing.visible_box)
        sample.objects.append(thing)
    return samples, categories


def box_of(mask):
    """x, y, width, height of the pixels that are set."""
    ys, xs = np.nonzero(mask)
    return [int(xs.min()), int(ys.min()), int(xs.max() - xs.min()) + 1, int(ys.max() - ys.min()) + 1]


# WebDataset: https://huggingface.co/docs/hub/datasets-webdataset and the README of the format's library: tar files, one
# sample is the run of files whose names agree up to the first dot behind the last slash.

def tar_members(path):
    """(name, bytes) in the order of the file. Nothing in it tells who made it when, or how large it is by chance."""
    data = load(path)
    require(len(data) % 512 == 0 and data[-1024:] == bytes(1024), "a tar file ends with two empty blocks")
    with tarfile.open(path, "r:") as archive:
        for member in archive:
            require(member.isfile(), "%s is no plain file", member.name)
            require((member.mtime, member.uid, member.gid, member.uname, member.gname) == (0, 0, 0, "", ""),
                    "%s has a time or an owner", member.name)
            yield member.name, archive.extractfile(member).read()


def webdataset_samples(path):
    """(key, {extension: bytes}) of one shard, streamed in its order."""
    current, files, seen = None, {}, set()
    for name, data in tar_members(path):
        match = re.fullmatch(r"((?:.*/)?[^./]+)\.([^/]*)", name)
        require(match, "%s has no extension", name)
        key, extension = match.groups()
        if key != current:
            require(key not in seen, "the files of sample %s do not follow one another", key)
            if current is not None:
                yield current, files
            seen.add(key)
            current, files = key, {}
        require(extension not in files, "%s twice", name)
        require(extension == extension.lower(), "%s: extensions are in small letters", name)
        files[extension] = data
    if current is not None:
        yield current, files


# BOP: https://github.com/thodan/bop_toolkit/blob/master/docs/bop_datasets_format.md

def read_bop_scene(folder):
    """Samples by image id, of one scene: train/SCENE."""
    cameras = load_json(os.path.join(folder, "scene_camera.json"))
    poses = load_json(os.path.join(folder, "scene_gt.json"))
    infos = load_json(os.path.join(folder, "scene_gt_info.json"))
    require(cameras.keys() == poses.keys() == infos.keys(), "the three files tell of different images")
    require(len(cameras) <= 1000, "%d images in a scene", len(cameras))
    samples = {}
    expected = {"mask": set(), "mask_visib": set(), "rgb": set(), "depth": set()}
    for key, camera in cameras.items():
        require(key == str(int(key)), "image ids are written without leading zeros: %s", key)
        name = "%06d.png" % int(key)
        sample = samples[int(key)] = Sample(int(key))
        sample.color = read_png(load(os.path.join(folder, "rgb", name)))
        require(sample.color.ndim == 3 and sample.color.dtype == np.uint8, "rgb/%s is no 8-bit RGB image", name)
        stored = read_png(load(os.path.join(folder, "depth", name)))
        require(stored.dtype == np.uint16 and stored.shape == sample.color.shape[:2], "depth/%s", name)
        expected["rgb"].add(name)
        expected["depth"].add(name)
        # "Multiply the depth image with this factor to get depth in mm."
        sample.depth = np.where(stored == 0, np.inf, stored * (camera["depth_scale"] / 1000.0))
        sample.depth_quantum = camera["depth_scale"] / 1000.0 / 2
        sample.K = np.array(camera["cam_K"]).reshape(3, 3)
        sample.world_to_camera = pose(camera["cam_R_w2c"], camera["cam_t_w2c"])
        require(len(poses[key]) == len(infos[key]), "poses and their infos of image %s", key)
        for index, (gt, info) in enumerate(zip(poses[key], infos[key])):
            thing = Object(gt["obj_id"])
            thing.R, thing.t = pose(gt["cam_R_m2c"], gt["cam_t_m2c"])
            mask_name = "%06d_%06d.png" % (int(key), index)
            thing.mask = read_mask(load(os.path.join(folder, "mask", mask_name)))
            thing.visible_mask = read_mask(load(os.path.join(folder, "mask_visib", mask_name)))
            expected["mask"].add(mask_name)
            expected["mask_visib"].add(mask_name)
            check_bop_info(sample, thing, info)
            sample.objects.append(thing)
    for kind, names in expected.items():
        require(set(os.listdir(os.path.join(folder, kind))) == names, "other files in %s than were told of", kind)
    return samples


def check_bop_info(sample, thing, info):
    """Counts and boxes are those of the masks."""
    thing.info = info
    thing.box, thing.visible_box = info["bbox_obj"], info["bbox_visib"]
    require(info["px_count_all"] == thing.mask.sum(), "px_count_all %s", info)
    require(info["px_count_visib"] == thing.visible_mask.sum(), "px_count_visib %s", info)
    require(info["px_count_valid"] == (thing.mask & np.isfinite(sample.depth)).sum(), "px_count_valid %s", info)
    require(abs(info["visib_fract"] - thing.visible_mask.sum() / thing.mask.sum()) < 1e-9, "visib_fract %s", info)
    require(not (thing.visible_mask & ~thing.mask).any(), "more is visible than there is")
    require(thing.box == box_of(thing.mask), "bbox_obj %s", info)
    if thing.visible_mask.any():
        require(thing.visible_box == box_of(thing.visible_mask), "bbox_visib %s", info)
    else:
        require(thing.visible_box == [-1, -1, -1, -1], "bbox_visib of what cannot be seen: %s", info)


def pose(rotation, translation):
    """(R, t) in m from nine numbers, row by row, and three in mm."""
    R = np.array(rotation, float).reshape(3, 3)
    require(np.allclose(R @ R.T, np.eye(3), atol=1e-9) and np.linalg.det(R) > 0.0, "no rotation: %s", rotation)
    return R, np.array(translation, float).reshape(3) / 1000.0


def read_bop_models(folder):
    """Model by object id; what the files say of it agrees."""
    models = {}
    for key, info in load_json(os.path.join(folder, "models_info.json")).items():
        low = np.array([info["min_x"], info["min_y"], info["min_z"]]) / 1000.0
        size = np.array([info["size_x"], info["size_y"], info["size_z"]]) / 1000.0
        vertices, normals, faces = read_ply(load(os.path.join(folder, "obj_%06d.ply" % int(key))))
        vertices = vertices / 1000.0
        require(np.allclose(vertices.min(axis=0), low, atol=1e-6), "box of model %s", key)
        require(np.allclose(np.ptp(vertices, axis=0), size, atol=1e-6), "size of model %s", key)
        require(np.allclose(np.linalg.norm(normals, axis=1), 1.0, atol=1e-4), "normals of model %s", key)
        spread = max(np.linalg.norm(vertices - vertex, axis=1).max() for vertex in np.unique(vertices, axis=0))
        require(abs(spread - info["diameter"] / 1000.0) < 1e-6, "diameter of model %s", key)
        models[int(key)] = Model(low, size, spread, vertices, faces)
    return models


def read_ply(data):
    """Vertices, normals and faces of an ASCII PLY file of triangles."""
    header, _, body = data.decode("ascii").partition("end_header\n")
    lines = header.split("\n")
    require(lines[0] == "ply" and "format ascii 1.0" in lines, "no ASCII PLY file")
    counts = dict(re.findall(r"element (\w+) (\d+)", header))
    names = re.findall(r"property float (\w+)", header)
    require(names[:6] == ["x", "y", "z", "nx", "ny", "nz"], "properties %s", names)
    rows = body.strip().split("\n")
    number = int(counts["vertex"])
    require(len(rows) == number + int(counts["face"]), "%d lines", len(rows))
    values = np.array([row.split() for row in rows[:number]], float)
    faces = np.array([row.split() for row in rows[number:]], int)
    require((faces[:, 0] == 3).all() and faces[:, 1:].min() >= 0 and faces[:, 1:].max() < number, "faces")
    return values[:, :3], values[:, 3:6], faces[:, 1:]
