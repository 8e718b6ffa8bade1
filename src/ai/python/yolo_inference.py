#!/usr/bin/env python3
"""Runs a YOLO model over a video and keeps the frames in which chosen labels are
detected (or, with --invert, are not).

Brindle starts this script and reads its standard output, one record per line:
  TOTAL:<frames>                      frames in the video
  PROGRESS:<frame>:<frames>:<saved>   after a processed frame, about ten times a second
  SAVED:<frame>:<file>:<labels>       a frame was kept; file is relative to the output folder
  DETECTED:<frame>:<labels>           objects were found in a frame that was not kept
  INFO:<text>                         "INFO:Output folder: <path>" names the dated folder
  DONE:<saved>:<folder>               the end of a successful run
  ERROR:<text>                        what went wrong; the exit code is then non-zero
Frame numbers count from 1. The frame being worked on, with its detections drawn, is
written to <temporary folder>/pt_preview_frame.jpg for the live preview.
"""

import argparse
import datetime
import os
import sys
import queue
import tempfile
import threading
import time

PREVIEW_NAME = "pt_preview_frame.jpg"
PROGRESS_INTERVAL = 0.1
PREVIEW_INTERVAL = 0.25
PIP_HINT = ("Click 'Install AI Dependencies' or run: "
            "pip install ultralytics opencv-python \"numpy<2.0\"")


OUTPUT = threading.RLock()  # whole lines, from either thread


def emit(line):
    with OUTPUT:
        sys.stdout.write(line + "\n")
        sys.stdout.flush()


def fail(message, code=1):
    emit("ERROR:" + message)
    sys.exit(code)


class Parser(argparse.ArgumentParser):
    def error(self, message):
        fail("Bad arguments: " + message, 2)


def parse_arguments(argv):
    parser = Parser(description="Save the frames of a video in which a YOLO model "
                                "detects chosen labels.")
    parser.add_argument("--model", required=True, help="YOLO .pt model file")
    parser.add_argument("--video", required=True, help="video file")
    parser.add_argument("--output", required=True, help="folder below which the dated "
                                                        "output folder is made")
    parser.add_argument("--labels", default="", help="comma-separated labels; empty "
                                                     "means any detection")
    parser.add_argument("--conf", type=float, default=0.25, help="confidence threshold")
    parser.add_argument("--frame-skip", type=int, default=1, help="process every Nth frame")
    parser.add_argument("--save-xml", action="store_true",
                        help="write images/ and annotations/ with one XML file per frame")
    parser.add_argument("--invert", action="store_true",
                        help="keep the frames in which the labels are NOT detected")
    # Values are glued to their option so that a label or path starting with "-" is
    # not taken for an option.
    glued, i = [], 0
    while i < len(argv):
        if argv[i] in ("--model", "--video", "--output", "--labels") and i + 1 < len(argv):
            glued.append(argv[i] + "=" + argv[i + 1])
            i += 2
        else:
            glued.append(argv[i])
            i += 1
    return parser.parse_args(glued)


def import_packages():
    # Failures are reported as ERROR lines; OpenCV's own log would only repeat them.
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


def class_name(names, index):
    try:
        return str(names[index])
    except (KeyError, IndexError, TypeError):
        return "class_%d" % index


def detections(result, names, conf):
    """(label, x1, y1, x2, y2) per detection at or above conf, in the model's order."""
    boxes = getattr(result, "boxes", None)
    if boxes is None or len(boxes) == 0:
        return []
    names = getattr(result, "names", None) or names
    found = []
    for (x1, y1, x2, y2), c, p in zip(as_array(boxes.xyxy), as_array(boxes.cls),
                                      as_array(boxes.conf)):
        if float(p) >= conf:
            found.append((class_name(names, int(c)), float(x1), float(y1), float(x2), float(y2)))
    return found


def label_field(found):
    """The distinct labels in order of appearance; ":" would split the record."""
    seen = []
    for d in found:
        if d[0] not in seen:
            seen.append(d[0])
    return ", ".join(seen).replace(":", "_")


def safe_stem(path):
    stem = os.path.splitext(os.path.basename(path))[0]
    return "".join(c if c.isalnum() or c in "._-" else "_" for c in stem) or "video"


def xml_text(text):
    """Escaped as Brindle's own files escape it; characters XML cannot carry are dropped."""
    out = []
    for ch in text:
        code = ord(ch)
        if ch == "<":
            out.append("&lt;")
        elif ch == ">":
            out.append("&gt;")
        elif ch == "&":
            out.append("&amp;")
        elif ch == '"':
            out.append("&quot;")
        elif ch == "\r":
            out.append("&#13;")
        elif (code < 0x20 and ch not in "\t\n") or code in (0xFFFE, 0xFFFF):
            continue
        else:
            out.append(ch)
    return "".join(out)


def pixel_box(x1, y1, x2, y2, width, height):
    """Detection edges to the inclusive pixel rectangle Brindle stores, the way its YOLO
    import converts them: left/top truncated, right = left + truncated width - 1."""
    def span(a, b, size):
        lo = min(max(int(min(a, b)), 0), size - 1)
        hi = min(max(lo + int(abs(b - a)) - 1, lo), size - 1)
        return lo, hi
    left, right = span(x1, x2, width)
    top, bottom = span(y1, y2, height)
    return left, top, right, bottom


def annotation_xml(image_path, folder, width, height, found):
    """The annotation file of one frame, byte for byte the layout Brindle writes."""
    lines = ['<?xml version="1.0" encoding="UTF-8"?>', "<annotation>",
             "  <folder>%s</folder>" % xml_text(folder),
             "  <filename>%s</filename>" % xml_text(os.path.basename(image_path)),
             "  <path>%s</path>" % xml_text(os.path.abspath(image_path)),
             "  <source>", "    <database>Unknown</database>", "  </source>",
             "  <size>", "    <width>%d</width>" % width, "    <height>%d</height>" % height,
             "    <depth>3</depth>", "  </size>", "  <segmented>0</segmented>"]
    for label, x1, y1, x2, y2 in found:
        left, top, right, bottom = pixel_box(x1, y1, x2, y2, width, height)
        lines += ["  <object>", "    <name>%s</name>" % xml_text(label),
                  "    <type>bndbox</type>", "    <pose>Unspecified</pose>",
                  "    <truncated>0</truncated>", "    <difficult>0</difficult>",
                  "    <bndbox>", "      <xmin>%d</xmin>" % left, "      <ymin>%d</ymin>" % top,
                  "      <xmax>%d</xmax>" % right, "      <ymax>%d</ymax>" % bottom,
                  "    </bndbox>", "  </object>"]
    lines.append("</annotation>")
    return ("\n".join(lines) + "\n").encode("utf-8", "replace")


def hidden_twin(path):
    """A temporary name beside path that image and annotation listings skip."""
    folder, name = os.path.split(path)
    root, extension = os.path.splitext(name)
    return os.path.join(folder, "." + root + ".part" + extension)


def write_atomically(path, data):
    temporary = hidden_twin(path)
    with open(temporary, "wb") as f:
        f.write(data)
    os.replace(temporary, path)


def make_output_folder(root, video):
    stamp = datetime.datetime.now().strftime("%Y%m%d_%H%M%S")
    base = os.path.join(root, "%s_%s" % (safe_stem(video), stamp))
    folder, n = base, 1
    while os.path.exists(folder):
        n += 1
        folder = "%s_%d" % (base, n)
    os.makedirs(folder)
    return folder


class Preview:
    """Writes the current frame for the dialog's preview, replacing the file in one step
    so the dialog never reads half an image."""

    def __init__(self, cv2):
        self.cv2 = cv2
        self.path = os.path.join(tempfile.gettempdir(), PREVIEW_NAME)
        self.last = 0.0

    def offer(self, result, frame):
        now = time.monotonic()
        if now - self.last < PREVIEW_INTERVAL:
            return
        self.last = now
        try:
            image = result.plot()
        except Exception:
            image = frame
        temporary = self.path[:-4] + ".part.jpg"
        if self.cv2.imwrite(temporary, image):
            os.replace(temporary, self.path)


class FrameWriter:
    """Encodes and writes the kept frames on a second thread (OpenCV lets go of the
    interpreter while it encodes), so decoding and the model go on meanwhile. A frame is
    announced with SAVED once its files are complete."""

    def __init__(self, cv2):
        self.cv2 = cv2
        self.jobs = queue.Queue(maxsize=8)
        self.written = 0
        self.error = None
        self.thread = threading.Thread(target=self._run, daemon=True)
        self.thread.start()

    def put(self, number, frame, image_path, xml_path, xml, announced):
        if self.error:
            fail(self.error, 5)
        self.jobs.put((number, frame, image_path, xml_path, xml, announced))

    def close(self):
        self.jobs.put(None)
        self.thread.join()
        if self.error:
            fail(self.error, 5)

    def _run(self):
        while True:
            job = self.jobs.get()
            if job is None:
                return
            number, frame, image_path, xml_path, xml, announced = job
            if self.error:
                continue
            try:
                # Written whole or not at all: a stopped run leaves no broken image.
                temporary = hidden_twin(image_path)
                if not self.cv2.imwrite(temporary, frame):
                    raise OSError("the image could not be encoded or written")
                os.replace(temporary, image_path)
                if xml_path:
                    write_atomically(xml_path, xml)
            except OSError as e:
                self.error = "Cannot write %s: %s" % (image_path, e.strerror or e)
                continue
            with OUTPUT:
                self.written += 1
                emit(announced)


def run(args):
    if not os.path.isfile(args.model):
        fail("Model file not found: " + args.model, 2)
    YOLO = import_packages()
    import cv2
    model = load_model(YOLO, args.model)
    names = getattr(model, "names", {}) or {}

    capture = cv2.VideoCapture(args.video)
    ok, frame = capture.read() if capture.isOpened() else (False, None)
    if not ok:
        fail("Cannot read video: " + args.video, 4)
    total = max(int(capture.get(cv2.CAP_PROP_FRAME_COUNT)), 0)
    skip = max(args.frame_skip, 1)
    wanted = {w.strip().lower() for w in args.labels.split(",") if w.strip()}

    try:
        folder = make_output_folder(os.path.abspath(args.output), args.video)
        images = os.path.join(folder, "images") if args.save_xml else folder
        annotations = os.path.join(folder, "annotations")
        if args.save_xml:
            os.makedirs(images)
            os.makedirs(annotations)
    except OSError as e:
        fail("Cannot create the output folder below %s: %s" % (args.output, e.strerror), 5)

    emit("TOTAL:%d" % total)
    emit("INFO:Model: %s (%d classes)" % (os.path.basename(args.model), len(names)))
    emit("INFO:Output folder: " + folder)
    preview = Preview(cv2)
    stem = safe_stem(args.video)
    writer = FrameWriter(cv2)
    number, last_progress = 1, 0.0
    while ok:
        if frame is not None:
            try:
                result = model(frame, conf=args.conf, verbose=False)[0]
            except Exception as e:
                fail("Inference failed on frame %d (%s: %s)" % (number, type(e).__name__, e), 6)
            found = detections(result, names, args.conf)
            labels = [d[0].lower() for d in found]
            hit = any(l in wanted for l in labels) if wanted else bool(labels)
            if hit != args.invert:
                name = "%s_frame%06d.jpg" % (stem, number)
                image_path = os.path.join(images, name)
                xml_path, xml = None, None
                if args.save_xml:
                    height, width = frame.shape[:2]
                    xml = annotation_xml(image_path, "images", width, height, found)
                    xml_path = os.path.join(annotations, name[:-4] + ".xml")
                relative = "images/" + name if args.save_xml else name
                writer.put(number, frame, image_path, xml_path, xml,
                           "SAVED:%d:%s:%s" % (number, relative, label_field(found)))
            elif found:
                emit("DETECTED:%d:%s" % (number, label_field(found)))
            preview.offer(result, frame)
            now = time.monotonic()
            if now - last_progress >= PROGRESS_INTERVAL:
                last_progress = now
                with OUTPUT:
                    emit("PROGRESS:%d:%d:%d" % (number, total, writer.written))
        number += 1
        if (number - 1) % skip == 0:
            ok, frame = capture.read()
        else:
            ok, frame = capture.grab(), None  # a skipped frame is never converted
    number -= 1
    capture.release()
    writer.close()
    emit("PROGRESS:%d:%d:%d" % (number, max(total, number), writer.written))
    emit("DONE:%d:%s" % (writer.written, folder))


def main():
    # Brindle reads the records as UTF-8 whatever the locale says.
    sys.stdout.reconfigure(encoding="utf-8", errors="replace")
    args = parse_arguments(sys.argv[1:])
    try:
        run(args)
    except SystemExit:
        raise
    except BaseException as e:  # never end on a bare traceback
        import traceback
        traceback.print_exc()
        fail("%s: %s" % (type(e).__name__, e), 1)


if __name__ == "__main__":
    main()
