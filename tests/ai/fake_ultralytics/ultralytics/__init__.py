"""A stand-in for the ultralytics package whose results have the real shapes.

The model file is JSON: {"classes": [{"name": "person", "bgr": [0, 0, 255], "conf": 0.9}],
"keypoints": false, "delay": 0}. A class is found where a frame has pixels of its colour
(its box spans them, right and bottom edges exclusive as YOLO gives them); pose models put
a keypoint on each box corner; every call first sleeps "delay" seconds. FAKE_YOLO_STATS
names a file that receives at exit the number of calls, the processor time spent in them,
and the process's processor time since this module was imported.
"""
import atexit, json, os, time
import cv2
import numpy as np


class Tensor(np.ndarray):
    def cpu(self):
        return self

    def numpy(self):
        return np.asarray(self)


def tensor(values, shape):
    return np.asarray(values, dtype=np.float32).reshape(shape).view(Tensor)


class Results:
    def __init__(self, image, rows, names, pose):
        self.orig_img, self.names = image, names
        self.boxes = type("Boxes", (), {"xyxy": tensor([r[:4] for r in rows], (-1, 4)), "cls": tensor(
            [r[4] for r in rows], (-1,)), "conf": tensor([r[5] for r in rows], (-1,)), "__len__": lambda b: len(rows)})()
        corners = [[(r[0], r[1]), (r[2], r[1]), (r[2], r[3]), (r[0], r[3])] for r in rows]
        self.keypoints = type("Keypoints", (), {"xy": tensor(corners, (-1, 4, 2)),
                                                "conf": tensor(np.ones((len(rows), 4)), (-1, 4))})() if pose else None

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
            spec = json.load(f)
        self.classes = spec["classes"]
        self.names = {i: c["name"] for i, c in enumerate(self.classes)}
        self.pose, self.delay = spec.get("keypoints", False), spec.get("delay", 0)

    def __call__(self, image, conf=0.25, verbose=True, **_):
        time.sleep(self.delay)
        start, rows = time.thread_time(), []
        for i, c in enumerate(self.classes):
            bgr = np.array(c["bgr"])
            points = cv2.findNonZero(cv2.inRange(image, np.clip(bgr - 60, 0, 255), np.clip(bgr + 60, 0, 255)))
            if points is not None and len(points) > 20 and c["conf"] >= conf:
                x, y, w, h = cv2.boundingRect(points)
                rows.append((x, y, x + w, y + h, i, c["conf"]))
        STATS["calls"] += 1
        STATS["model_cpu"] += time.thread_time() - start
        return [Results(image, rows, self.names, self.pose)]

    predict = __call__
