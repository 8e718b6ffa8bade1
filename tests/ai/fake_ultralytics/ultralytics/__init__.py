"""A stand-in for the ultralytics package whose results have the real shapes.

The model file is JSON: {"classes": [{"name": "person", "bgr": [0, 0, 255], "conf": 0.9}],
"task": "detect", "keypoints": false, "delay": 0}. A class is found where an image has pixels
of its colour (its box spans them, right and bottom edges exclusive as YOLO gives them).
Tasks: "segment" adds masks.xy, the outlines of the region with those of its holes joined
on as the real package may join them; "pose" ("keypoints": true) puts a keypoint on each
box corner, with confidences "kconf" and names "kpt_names" when given; "obb" gives obb
boxes (xyxyxyxy in the real corner order) instead of boxes. A call raises where an image
holds "fail_bgr"; every call first sleeps "delay" seconds. FAKE_YOLO_STATS names a file
that receives at exit the number of calls, the processor time spent in them, and the
process's processor time since this module was imported.
"""
import atexit, json, math, os, time
import cv2
import numpy as np


class Tensor(np.ndarray):
    def cpu(self):
        return self

    def numpy(self):
        return np.asarray(self)


def tensor(values, shape):
    return np.asarray(values, dtype=np.float32).reshape(shape).view(Tensor)


def group(name, n, **fields):
    return type(name, (), dict(fields, __len__=lambda self: n))()


class Results:
    def __init__(self, image, rows, names, model_cfg):
        self.orig_img, self.names, n = image, names, len(rows)
        self.boxes = group("Boxes", n, xyxy=tensor([r[:4] for r in rows], (-1, 4)), cls=tensor(
            [r[4] for r in rows], (-1,)), conf=tensor([r[5] for r in rows], (-1,)))
        self.keypoints = self.masks = self.obb = None
        if model_cfg["task"] == "pose":
            corners = [[(r[0], r[1]), (r[2], r[1]), (r[2], r[3]), (r[0], r[3])] for r in rows]
            kconf = model_cfg.get("kconf", [1.0] * 4)
            self.keypoints = group("Keypoints", n, xy=tensor(corners, (-1, 4, 2)), conf=tensor([kconf] * n, (-1, 4)))
        if model_cfg["task"] == "segment":
            self.masks = group("Masks", n, xy=[np.concatenate(r[6]).reshape(-1, 2).astype(np.float32) for r in rows])
        if model_cfg["task"] == "obb":
            corners = []
            for r in rows:  # the real package's xywhr -> xyxyxyxy
                (cx, cy), (w, h), a = cv2.minAreaRect(r[6][0])
                c, s = math.cos(math.radians(a)), math.sin(math.radians(a))
                v1, v2 = np.array([w / 2 * c, w / 2 * s]), np.array([-h / 2 * s, h / 2 * c])
                ctr = np.array([cx, cy])
                corners.append([ctr + v1 + v2, ctr + v1 - v2, ctr - v1 - v2, ctr - v1 + v2])
            self.obb = group("OBB", n, xyxyxyxy=tensor(corners, (-1, 4, 2)), cls=self.boxes.cls, conf=self.boxes.conf)
            self.boxes = None

    def plot(self):
        out = self.orig_img.copy()
        for x1, y1, x2, y2, c, p in zip(*self.boxes.xyxy.T, self.boxes.cls, self.boxes.conf):
            cv2.rectangle(out, (int(x1), int(y1)), (int(x2), int(y2)), (255, 255, 255), 2)
            cv2.putText(out, "%s %.2f" % (self.names[int(c)], p), (int(x1), max(int(y1) - 4, 10)),
                        cv2.FONT_HERSHEY_SIMPLEX, 0.4, (255, 255, 255), 1)
        for x, y in [] if self.keypoints is None else self.keypoints.xy.reshape(-1, 2):
            cv2.circle(out, (int(x), int(y)), 3, (0, 255, 0), -1)
        return out


STATS = {"calls": 0, "model_cpu": 0.0, "start_cpu": sum(os.times()[:2])}
if os.environ.get("FAKE_YOLO_STATS"):
    atexit.register(lambda: json.dump(dict(STATS, process_cpu=sum(os.times()[:2]) - STATS["start_cpu"]),
                                      open(os.environ["FAKE_YOLO_STATS"], "w")))


class YOLO:
    def __init__(self, path):
        with open(path) as f:  # a missing file raises FileNotFoundError as the real one does
            self.model_cfg = json.load(f)
        self.model_cfg.setdefault("task", "pose" if self.model_cfg.get("keypoints") else "detect")
        self.classes, self.task, self.delay = self.model_cfg["classes"], self.model_cfg["task"], self.model_cfg.get("delay", 0)
        self.names = {i: c["name"] for i, c in enumerate(self.classes)}
        if "kpt_names" in self.model_cfg:
            self.kpt_names = {0: self.model_cfg["kpt_names"]}

    def __call__(self, images, conf=0.25, verbose=True, max_det=300, **_):
        time.sleep(self.delay)
        start = time.thread_time()
        out = [self.one(image, conf, max_det) for image in (images if isinstance(images, list) else [images])]
        STATS["calls"] += 1
        STATS["model_cpu"] += time.thread_time() - start
        return out

    def one(self, image, conf, max_det):
        def region(bgr):
            return cv2.inRange(image, np.clip(np.array(bgr) - 60, 0, 255), np.clip(np.array(bgr) + 60, 0, 255))
        if "fail_bgr" in self.model_cfg and cv2.countNonZero(region(self.model_cfg["fail_bgr"])):
            raise RuntimeError("CUDA error: an illegal memory access was encountered")
        rows = []
        for i, c in enumerate(self.classes):
            mask = region(c["bgr"])
            points = cv2.findNonZero(mask)
            if points is not None and len(points) > 20 and c["conf"] >= conf:
                x, y, w, h = cv2.boundingRect(points)
                rings = cv2.findContours(mask, cv2.RETR_LIST, cv2.CHAIN_APPROX_NONE)[-2]
                rows.append((x, y, x + w, y + h, i, c["conf"], sorted(rings, key=len, reverse=True)))
        rows.sort(key=lambda r: -r[5])
        return Results(image, rows[:max_det], self.names, self.model_cfg)

    predict = __call__
