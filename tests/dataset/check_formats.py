#!/usr/bin/env python3
"""Holds data sets to what was to be written.

    check_formats.py FORMAT FOLDER TRUTH

FORMAT is folders, webdataset, bop or coco, FOLDER the data set, TRUTH a folder with a truth.json (SampleScene.h), or a data set
in the format webdataset of the same recipe. Ends with 77 where numpy is missing.
"""
import glob
import os
import sys

try:
    import numpy as np
except ImportError:
    print("numpy is missing")
    sys.exit(77)

from readers import (FormatError, Object, Sample, box_of, load, load_json, read_bop_models, read_bop_scene, read_coco,
                     read_mask, read_npy, read_png, read_rle, require, webdataset_samples)
import json


# What was to be written.

def lens_matrix(fx, fy, cx, cy):
    """With pixel centres at whole numbers; the libraries' own principal points count from the corner of a pixel."""
    return np.array([[fx, 0.0, cx - 0.5], [0.0, fy, cy - 0.5], [0.0, 0.0, 1.0]])


def pose(rows):
    matrix = np.array(rows).reshape(4, 4)
    return matrix[:3, :3], matrix[:3, 3]


def read_truth(folder):
    """Samples by number, whose objects are all labelled parts in the order of their labels."""
    tree = load_json(os.path.join(folder, "truth.json"))
    shape = tree["height"], tree["width"]
    samples = {}
    for entry in tree["samples"]:
        def values(name, kind):
            return np.frombuffer(load(os.path.join(folder, "%d.%s" % (entry["number"], name))), kind)
        sample = samples[entry["number"]] = Sample(entry["number"])
        sample.color = values("color", np.uint8).reshape(shape + (3,))
        sample.depth = values("depth", np.float32).reshape(shape)
        sample.labels = values("labels", np.uint32).reshape(shape)
        sample.normals = values("normals", np.float32).reshape(shape + (3,))
        sample.K = lens_matrix(*entry["lens"])
        sample.world_to_camera = pose(entry["worldToOptical"])
        for part in entry["parts"]:
            thing = Object(part["category"])
            thing.label = part["label"]
            thing.R, thing.t = pose(part["linkToOptical"])
            thing.mask = values("mask%d" % part["label"], np.uint8).reshape(shape) == 1
            sample.objects.append(thing)
    return samples


def read_own(files, masks, normals):
    """A sample from the files that docs/dataset-formats.md tells: their bytes by the extensions of the webdataset."""
    tree = json.loads(files["json"].decode("utf-8"))
    sample = Sample(tree["sample"]["number"])
    sample.color = read_png(files["color.png"])
    sample.depth = read_npy(files["depth.npy"])
    sample.labels = read_png(files["labels.png"])
    require(sample.labels.dtype == np.uint16, "labels are of %s", sample.labels.dtype)
    sample.normals = normals
    lens = tree["camera"]["intrinsics"]
    require(lens["pixelCenter"] == 0.5, "pixelCenter")
    sample.K = lens_matrix(lens["fx"], lens["fy"], lens["cx"], lens["cy"])
    sample.world_to_camera = pose(tree["camera"]["worldToOptical"])
    for part in tree["parts"]:
        thing = Object(part["category"])
        thing.label = part["label"]
        thing.R, thing.t = pose(part["linkToOptical"])
        thing.mask = masks.get(thing.label, np.zeros(sample.labels.shape, bool))
        visible = sample.labels == thing.label
        require(part["visiblePixels"] == visible.sum(), "visiblePixels of %s", part["name"])
        require(part["amodalPixels"] == thing.mask.sum(), "amodalPixels of %s", part["name"])
        require(part["visibleBox"] == (box_of(visible) if visible.any() else [0, 0, 0, 0]), "visibleBox")
        require(part["amodalBox"] == (box_of(thing.mask) if thing.mask.any() else [0, 0, 0, 0]), "amodalBox")
        sample.objects.append(thing)
    return sample


def read_webdataset(folder):
    samples = {}
    shards = sorted(glob.glob(os.path.join(folder, "shard-*", "samples.tar")))
    require(shards, "no shards")
    for shard in shards:
        for key, files in webdataset_samples(shard):
            masks = {m["label"]: read_rle(m["amodal"]) for m in json.loads(files["masks.json"].decode("ascii"))}
            normals = read_npy(files["normals.npy"]) if "normals.npy" in files else None
            sample = read_own(files, masks, normals)
            require(key == "%09d" % sample.number and sample.number not in samples, "%s in %s", key, shard)
            samples[sample.number] = sample
    return samples


def read_folders(folder):
    samples = {}
    for path in sorted(glob.glob(os.path.join(folder, "shard-*", "frames", "*.json"))):
        shard, key = os.path.dirname(os.path.dirname(path)), os.path.basename(path)[:-len(".json")]
        files = {kind + extension: load(os.path.join(shard, kind, key + extension))
                 for kind, extension in (("color", ".png"), ("depth", ".npy"), ("labels", ".png"))}
        files["json"] = load(path)
        masks = {}
        for mask in glob.glob(os.path.join(shard, "masks", key + "_*.png")):
            masks[int(mask[mask.rindex("_") + 1:-len(".png")])] = read_mask(load(mask))
        stored = read_png(load(os.path.join(shard, "normals", key + ".png"))).astype(np.float32)
        normals = np.where(stored.any(axis=2, keepdims=True), (stored - 32768) / 32767, 0)
        samples[int(key)] = read_own(files, masks, normals)
    return samples


# Comparisons.

def require_same_samples(found, truth):
    require(sorted(found) == sorted(truth), "samples %s instead of %s", sorted(found), sorted(truth))
    for number, sample in found.items():
        require(np.array_equal(sample.color, truth[number].color), "colours of %d", number)


def require_close(a, b, what, *values):
    require(np.allclose(a[0], b[0], atol=1e-12) and np.allclose(a[1], b[1], atol=1e-12), what, *values)


def check_own(found, truth, normals_error):
    require_same_samples(found, truth)
    for number, sample in found.items():
        true = truth[number]
        require(np.array_equal(sample.depth, true.depth) and sample.depth.dtype == np.float32, "depths of %d", number)
        require(np.array_equal(sample.labels, true.labels), "labels of %d", number)
        if sample.normals is not None and true.normals is not None:
            require(np.abs(sample.normals - true.normals).max() <= normals_error, "normals of %d", number)
        require(np.array_equal(sample.K, true.K), "lens of %d", number)
        require_close(sample.world_to_camera, true.world_to_camera, "view of %d", number)
        for thing, known in zip(sample.objects, true.objects):
            require((thing.label, thing.category) == (known.label, known.category), "parts of %d", number)
            require(np.array_equal(thing.mask, known.mask), "mask %d of %d", thing.label, number)
            require_close((thing.R, thing.t), (known.R, known.t), "pose %d of %d", thing.label, number)
    return found


def check_coco(folder, truth):
    found, _ = read_coco(os.path.join(folder, "annotations.json"))
    require_same_samples(found, truth)
    for number, sample in found.items():
        decoded = np.zeros(truth[number].labels.shape, int)
        for thing in sample.objects:
            require(not decoded[thing.visible_mask].any(), "two instances at one pixel of %d", number)
            decoded[thing.visible_mask] = thing.info["label"]
            known = truth[number].objects[thing.info["label"] - 1]
            require(thing.category == known.category, "category of %s", thing.info)
            amodal = read_rle(thing.info["amodal_segmentation"])
            require(np.array_equal(amodal, known.mask), "amodal mask of %s", thing.info)
            require(thing.info["amodal_bbox"] == box_of(amodal) and thing.info["amodal_area"] == amodal.sum(), "amodal")
        require(np.array_equal(decoded, truth[number].labels), "the labels of %d", number)
    for path in glob.glob(os.path.join(folder, "shard-*", "annotations.json")):
        part, _ = read_coco(path)
        require(set(part) <= set(found), "the images of %s", path)
    return found


def surface_distance(points, model):
    """How far each point lies from the nearest triangle: off its plane or beyond its edges, whichever is more."""
    corners = [model.vertices[model.faces[:, i]] for i in range(3)]
    normals = np.cross(corners[1] - corners[0], corners[2] - corners[0])
    areas = np.linalg.norm(normals, axis=1)
    corners, normals = [corner[areas > 0] for corner in corners], normals[areas > 0] / areas[areas > 0, None]
    distance = np.abs(points @ normals.T - (corners[0] * normals).sum(axis=1))
    for start, end in ((0, 1), (1, 2), (2, 0)):
        outward = np.cross(corners[end] - corners[start], normals)
        outward /= np.linalg.norm(outward, axis=1)[:, None]
        distance = np.maximum(distance, points @ outward.T - (corners[start] * outward).sum(axis=1))
    return distance.min(axis=1)


def check_bop(folder, truth):
    scenes = sorted(glob.glob(os.path.join(folder, "train", "*")))
    models = read_bop_models(os.path.join(folder, "models"))
    found, first = {}, 0
    for scene in scenes:
        samples = read_bop_scene(scene)
        found.update({first + number: sample for number, sample in samples.items()})
        first += len(samples)
    require_same_samples(found, truth)
    for number, sample in found.items():
        true = truth[number]
        require(np.array_equal(np.isfinite(sample.depth), np.isfinite(true.depth)), "where depths are in %d", number)
        seen = np.isfinite(true.depth)
        # Single precision rounds, too.
        quantum = sample.depth_quantum * 1.0001 + 1e-6
        require(np.abs(sample.depth[seen] - true.depth[seen]).max(initial=0.0) <= quantum, "depths of %d", number)
        require(sample.depth_quantum <= max(5e-5, 5.0 * true.depth[seen].max(initial=0.0) / 65535),
                "depths of %d are coarser than they need be", number)
        require(np.allclose(sample.K, true.K, atol=1e-9), "lens of %d", number)
        require_close(sample.world_to_camera, true.world_to_camera, "view of %d", number)
        covered = [known for known in true.objects if known.mask.any()]
        require(len(covered) == len(sample.objects), "%d objects in %d", len(sample.objects), number)
        for thing, known in zip(sample.objects, covered):
            require(thing.category == known.category, "category of object %d in %d", known.label, number)
            require_close((thing.R, thing.t), (known.R, known.t), "pose of object %d in %d", known.label, number)
            require(np.array_equal(thing.mask, known.mask), "mask of object %d in %d", known.label, number)
            visible = true.labels == known.label
            require(np.array_equal(thing.visible_mask, visible), "visible mask of object %d in %d", known.label, number)
            check_surface(sample, thing, models[thing.category], quantum)
    return found


def check_surface(sample, thing, model, quantum):
    """What the depth image sees of an object lies on the object's model: lens, pose, units and model fit each other."""
    ys, xs = np.nonzero(thing.visible_mask)
    if not len(xs):
        return
    rays = np.linalg.solve(sample.K, np.stack([xs, ys, np.ones(len(xs))]).astype(float))
    in_camera = (rays * sample.depth[ys, xs]).T
    in_model = (in_camera - thing.t) @ thing.R
    tolerance = 2.0 * quantum * np.linalg.norm(rays, axis=0).max()
    require((in_model > model.low - tolerance).all() and (in_model < model.low + model.size + tolerance).all(),
            "object %d of image %d is seen outside of its model", thing.category, sample.number)
    # Of a fine mesh a few points: all of its triangles are looked at for each.
    some = in_model[:: max(1, len(in_model) * len(model.faces) // 2_000_000)]
    off = surface_distance(some, model) > tolerance
    # Where a triangle is seen edge on, a hundredth of a pixel is millimetres of depth: drivers go beyond its edges there.
    # A lens or a pose that is wrong by half a pixel puts nearly all points off.
    require(off.sum() <= max(2, len(some) // 20), "%d of %d points of object %d in image %d are seen off its surface",
            off.sum(), len(some), thing.category, sample.number)


def main(arguments):
    kind, folder, truth_folder = arguments
    truth = (read_truth if os.path.exists(os.path.join(truth_folder, "truth.json")) else read_webdataset)(truth_folder)
    found = {"webdataset": lambda: check_own(read_webdataset(folder), truth, 0.0),
             "folders": lambda: check_own(read_folders(folder), truth, 1.6e-5), # half of 1 / 32767
             "bop": lambda: check_bop(folder, truth),
             "coco": lambda: check_coco(folder, truth)}[kind]()
    print("%d samples, %d objects" % (len(found), sum(len(sample.objects) for sample in found.values())))


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except (FormatError, KeyError, ValueError, OSError) as failure:
        sys.exit("%s: %s" % (type(failure).__name__, failure))
