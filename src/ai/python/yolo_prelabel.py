#!/usr/bin/env python3
"""Runs a YOLO model over a list of images and prints the shapes it proposes for each.

Brindle starts this script and reads its standard output, one record per line:
  CLASSES:<json>       {"task": "pose", "names": ["person"], "keypoints": ["nose", ...]}
  TOTAL:<images>
  RESULT:<json>        {"image": "a.jpg", "width": 640, "height": 480, "shapes": [...]}
  PROGRESS:<done>:<images>:<shapes>
  INFO:<text>
  ERROR:<text>         what went wrong; the run goes on with the next image where it can
  DONE:<images>:<shapes>
Each shape is {"class": name, "type": "bndbox" | "polygon" | "keypoint" | "rotatedbox",
"points": [[x, y], ...], "conf": c} (rotated boxes add "angle", in degrees clockwise).
Coordinates are pixels of the image as it is displayed (EXIF orientation applied); a box
gives its first and last covered pixel. The model's task decides the kinds: detect gives
boxes, segment polygons (outer outline only, at most 64 vertices), pose a box and one
keypoint per keypoint above the confidence threshold, obb rotated boxes. Any ERROR line
makes the exit code non-zero.

The image list is a UTF-8 file with one path per line. Images are decoded on a second
thread while the model works, and handed to the model in batches.
"""

import argparse
import json
import math
import os
import queue
import sys
import threading

PIP_HINT = ("Click 'Install AI Dependencies' or run: "
            "pip install ultralytics opencv-python \"numpy<2.0\"")
MAX_VERTICES = 64
TASKS = ("detect", "segment", "pose", "obb")


def emit(line):
    sys.stdout.write(line + "\n")


def fail(message, code=1):
    emit("ERROR:" + message)
    sys.stdout.flush()
    sys.exit(code)


class Parser(argparse.ArgumentParser):
    def error(self, message):
        fail("Bad arguments: " + message, 2)


def parse_arguments(argv):
    parser = Parser(description="Propose shapes for images with a YOLO model.")
    parser.add_argument("--model", required=True, help="YOLO .pt model file")
    parser.add_argument("--list", help="file with one image path per line")
    parser.add_argument("--classes-only", action="store_true",
                        help="print the model's classes and stop")
    parser.add_argument("--conf", type=float, default=0.25, help="confidence threshold")
    parser.add_argument("--iou", type=float, default=0.7, help="IoU threshold of the NMS")
    parser.add_argument("--max-det", type=int, default=100, help="shapes per image at most")
    parser.add_argument("--batch", type=int, default=8, help="images per model call")
    parser.add_argument("--tolerance", type=float, default=1.0,
                        help="pixels a simplified outline may stray from the mask's")
    # Values glued to their option, so a path starting with "-" is not taken for one.
    glued, i = [], 0
    while i < len(argv):
        if argv[i] in ("--model", "--list") and i + 1 < len(argv):
            glued.append(argv[i] + "=" + argv[i + 1])
            i += 2
        else:
            glued.append(argv[i])
            i += 1
    args = parser.parse_args(glued)
    if not args.classes_only and not args.list:
        fail("Bad arguments: --list is required", 2)
    return args


def import_packages():
    os.environ.setdefault("OPENCV_LOG_LEVEL", "OFF")
    # Looked up before anything is imported, which takes seconds, so that every missing
    # package is named at once.
    from importlib.util import find_spec
    missing = [package for module, package in (("numpy", "numpy"), ("cv2", "opencv-python"),
                                               ("ultralytics", "ultralytics"))
               if find_spec(module) is None]
    if missing:
        fail("Missing Python package%s: %s. %s" % ("s" if len(missing) > 1 else "",
                                                   ", ".join(missing), PIP_HINT), 3)
    try:
        import cv2  # noqa: F401
        from ultralytics import YOLO
    except Exception as e:  # a broken installation, e.g. NumPy 2 under an old torch
        module = e.name if isinstance(e, ImportError) and e.name else "ultralytics"
        fail("Could not import %s (%s: %s). %s" % (module, type(e).__name__, e, PIP_HINT), 3)
    return YOLO


def load_model(YOLO, path):
    try:
        return YOLO(path)
    except Exception as e:
        fail("Could not load model %s (%s: %s)" % (path, type(e).__name__, e), 2)


def as_array(values):
    """Model outputs are torch tensors, possibly on a GPU; plain arrays pass through."""
    import numpy
    if hasattr(values, "cpu"):
        values = values.cpu()
    if hasattr(values, "numpy"):
        values = values.numpy()
    return numpy.asarray(values)


def class_names(model):
    names = getattr(model, "names", None) or {}
    if isinstance(names, dict):
        count = max((int(k) for k in names), default=-1) + 1
        return [str(names.get(i, "class_%d" % i)) for i in range(count)]
    return [str(n) for n in names]


def keypoint_names(model):
    """The model's own names for its keypoints where it carries them, else kp0, kp1 ...
    as far as the model tells how many it places."""
    inner = getattr(model, "model", None)
    yaml = getattr(inner, "yaml", None)
    yaml = yaml if isinstance(yaml, dict) else {}
    names = getattr(model, "kpt_names", None) or yaml.get("kpt_names")
    if isinstance(names, dict):  # per class: the first class's list
        names = names.get(0, next(iter(names.values()), None))
    if names:
        return [str(n) for n in names]
    shape = getattr(model, "kpt_shape", None) or yaml.get("kpt_shape")
    return ["kp%d" % i for i in range(int(shape[0]))] if shape else []


def read_image(cv2, numpy, path):
    """The image as OpenCV shows it, EXIF orientation applied; None when unreadable.
    Read through numpy so that any file name works on every platform."""
    try:
        data = numpy.fromfile(path, dtype=numpy.uint8)
    except OSError:
        return None
    image = cv2.imdecode(data, cv2.IMREAD_COLOR) if data.size else None
    if image is None:
        try:  # GIF and others OpenCV cannot decode; Pillow comes with ultralytics
            from PIL import Image, ImageOps
            with Image.open(path) as pil:
                rgb = numpy.asarray(ImageOps.exif_transpose(pil).convert("RGB"))
            image = cv2.cvtColor(rgb, cv2.COLOR_RGB2BGR)
        except Exception:
            return None
    return image


def pixel_box(x1, y1, x2, y2, width, height):
    """Detection edges to the inclusive pixel rectangle Brindle stores, the way its YOLO
    import converts them: left/top truncated, right = left + truncated width - 1."""
    def span(a, b, size):
        lo = min(max(int(min(a, b)), 0), size - 1)
        hi = min(max(lo + int(abs(b - a)) - 1, lo), size - 1)
        return lo, hi
    left, right = span(x1, x2, width)
    top, bottom = span(y1, y2, height)
    return [[left, top], [right, bottom]]


def outline(cv2, numpy, points, tolerance):
    """The outer outline of a mask polygon, holes and stray pieces dropped, simplified to
    at most MAX_VERTICES vertices. The polygon is drawn into a mask of its own extent and
    traced again: the pieces and holes a model joins into one polygon come apart once the
    hairlines joining them are opened away, and the largest piece is kept."""
    points = numpy.asarray(points, dtype=numpy.float64).reshape(-1, 2)
    if len(points) < 3 or not numpy.isfinite(points).all():
        return None
    origin = numpy.floor(points.min(axis=0)) - 1
    local = numpy.round(points - origin).astype(numpy.int32)
    size = local.max(axis=0) + 2
    mask = numpy.zeros((int(size[1]), int(size[0])), numpy.uint8)
    cv2.fillPoly(mask, [local], 255)
    opened = cv2.morphologyEx(mask, cv2.MORPH_OPEN, numpy.ones((3, 3), numpy.uint8))
    if cv2.countNonZero(opened):
        mask = opened
    contours = cv2.findContours(mask, cv2.RETR_EXTERNAL, cv2.CHAIN_APPROX_NONE)[-2]
    if not contours:
        return None
    contour = max(contours, key=cv2.contourArea)
    epsilon = max(tolerance, 0.1)
    simple = cv2.approxPolyDP(contour, epsilon, True)
    while len(simple) > MAX_VERTICES:
        epsilon *= 1.5
        simple = cv2.approxPolyDP(contour, epsilon, True)
    if len(simple) < 3:
        return None
    return [[float(x + origin[0]), float(y + origin[1])] for x, y in simple.reshape(-1, 2)]


def clamp_point(x, y, width, height):
    return [round(min(max(float(x), 0.0), width - 1.0), 1),
            round(min(max(float(y), 0.0), height - 1.0), 1)]


def shapes_of(result, task, names, kpt_names, args, cv2, numpy, width, height):
    def name(index):
        return names[index] if 0 <= index < len(names) else "class_%d" % index

    shapes = []
    if task == "obb":
        obb = getattr(result, "obb", None)
        if obb is None or len(obb) == 0:
            return shapes
        for corners, c, p in zip(as_array(obb.xyxyxyxy), as_array(obb.cls), as_array(obb.conf)):
            # The model's corners go round from the bottom-right one at angle 0; ours start
            # top-left and go clockwise.
            c0, c1, c2, c3 = [(float(x), float(y)) for x, y in corners.reshape(4, 2)]
            ours = [c2, c1, c0, c3]
            angle = math.degrees(math.atan2(c1[1] - c2[1], c1[0] - c2[0]))
            # Of the four ways to name the same box, the one closest to upright.
            while angle > 45:
                ours, angle = ours[3:] + ours[:3], angle - 90
            while angle <= -45:
                ours, angle = ours[1:] + ours[:1], angle + 90
            shapes.append({"class": name(int(c)), "type": "rotatedbox",
                           "points": [[round(x, 1), round(y, 1)] for x, y in ours],
                           "angle": round(angle, 2), "conf": round(float(p), 3)})
        return shapes[:args.max_det]

    boxes = getattr(result, "boxes", None)
    if boxes is None or len(boxes) == 0:
        return shapes
    polygons = getattr(getattr(result, "masks", None), "xy", None) if task == "segment" else None
    keypoints = getattr(result, "keypoints", None) if task == "pose" else None
    kxy = as_array(keypoints.xy) if keypoints is not None else None
    kconf = as_array(keypoints.conf) if keypoints is not None and keypoints.conf is not None else None
    detections = list(zip(as_array(boxes.xyxy), as_array(boxes.cls), as_array(boxes.conf)))
    for i, ((x1, y1, x2, y2), c, p) in enumerate(detections[:args.max_det]):
        label, conf = name(int(c)), round(float(p), 3)
        if task == "segment":
            vertices = outline(cv2, numpy, polygons[i], args.tolerance) if polygons is not None and i < len(polygons) else None
            if vertices:
                shapes.append({"class": label, "type": "polygon", "conf": conf,
                               "points": [clamp_point(x, y, width, height) for x, y in vertices]})
            continue
        shapes.append({"class": label, "type": "bndbox", "conf": conf,
                       "points": pixel_box(float(x1), float(y1), float(x2), float(y2), width, height)})
        if kxy is None or i >= len(kxy):
            continue
        for k, (x, y) in enumerate(kxy[i]):
            score = float(kconf[i][k]) if kconf is not None else float(p)
            # (0, 0) is how YOLO marks a keypoint it did not place.
            if score < args.conf or (x == 0 and y == 0):
                continue
            shapes.append({"class": kpt_names[k] if k < len(kpt_names) else "kp%d" % k,
                           "type": "keypoint", "conf": round(score, 3),
                           "points": [clamp_point(x, y, width, height)]})
    return shapes


def reader(paths, cv2, numpy, jobs):
    """Decodes the images in order and queues (name, image or None)."""
    try:
        for path in paths:
            try:
                image = read_image(cv2, numpy, path)
            except Exception:
                image = None
            jobs.put((path, image))
    finally:
        jobs.put(None)


def run(args):
    if not os.path.isfile(args.model):
        fail("Model file not found: " + args.model, 2)
    YOLO = import_packages()
    import cv2
    import numpy
    model = load_model(YOLO, args.model)
    task = str(getattr(model, "task", "detect") or "detect")
    if task not in TASKS:
        fail("A %s model proposes no shapes; use a detect, segment, pose or obb model." % task, 2)
    names = class_names(model)
    kpt_names = keypoint_names(model) if task == "pose" else []
    emit("CLASSES:" + json.dumps({"task": task, "names": names, "keypoints": kpt_names},
                                 separators=(",", ":")))
    sys.stdout.flush()
    if args.classes_only:
        return 0
    try:
        with open(args.list, encoding="utf-8") as f:
            paths = [line.rstrip("\r\n") for line in f if line.strip()]
    except OSError as e:
        fail("Cannot read the image list %s: %s" % (args.list, e.strerror), 2)

    emit("TOTAL:%d" % len(paths))
    batch_size = max(args.batch, 1)
    jobs = queue.Queue(maxsize=2 * batch_size)
    threading.Thread(target=reader, args=(paths, cv2, numpy, jobs), daemon=True).start()
    done = shapes = errors = 0
    finished = False
    while not finished:
        batch = []
        while len(batch) < batch_size:
            job = jobs.get()
            if job is None:
                finished = True
                break
            path, image = job
            if image is None:
                emit("ERROR:Cannot read image: " + path)
                errors += 1
                done += 1
            else:
                batch.append((path, image))
        results = predict(model, [image for _, image in batch], args)
        for (path, image), result in zip(batch, results):
            done += 1
            if isinstance(result, Exception):
                emit("ERROR:Inference failed on %s (%s: %s)"
                     % (path, type(result).__name__, result))
                errors += 1
                continue
            height, width = image.shape[:2]
            found = shapes_of(result, task, names, kpt_names, args, cv2, numpy, width, height)
            shapes += len(found)
            emit("RESULT:" + json.dumps({"image": os.path.basename(path), "width": width,
                                         "height": height, "shapes": found},
                                        separators=(",", ":")))
        emit("PROGRESS:%d:%d:%d" % (done, len(paths), shapes))
        sys.stdout.flush()
    emit("DONE:%d:%d" % (done - errors, shapes))
    sys.stdout.flush()
    return 1 if errors else 0


def predict(model, images, args):
    """One result per image. A batch the model fails on is run again image by image, so
    that only the image at fault goes without proposals."""
    if not images:
        return []
    options = dict(conf=args.conf, iou=args.iou, max_det=args.max_det, verbose=False)
    try:
        results = list(model(images, **options))
        if len(results) == len(images):
            return results
    except Exception as e:
        if len(images) == 1:
            return [e]
    out = []
    for image in images:
        try:
            out.append(model([image], **options)[0])
        except Exception as e:
            out.append(e)
    return out


def main():
    # Brindle reads the records as UTF-8 whatever the locale says.
    sys.stdout.reconfigure(encoding="utf-8", errors="replace")
    args = parse_arguments(sys.argv[1:])
    try:
        code = run(args)
    except SystemExit:
        raise
    except BaseException as e:  # never end on a bare traceback
        import traceback
        traceback.print_exc()
        fail("%s: %s" % (type(e).__name__, e), 1)
    sys.exit(code)


if __name__ == "__main__":
    main()
