#!/usr/bin/env python3
"""Writes a copy of a video with a YOLO model's detections drawn on every frame: boxes,
keypoints where the model gives them, labels and confidence scores.

The copy is <output>/<video name>_annotated.mp4 (with _2, _3 ... when that exists). Until
the last frame is written it lies under a hidden temporary name, so a stopped run never
leaves a half-written video under the final name.

Brindle reads the standard output, one record per line:
  TOTAL:<frames>             frames in the video
  PROGRESS:<frame>:<frames>  at each whole percent, or once a second when the count is unknown
  INFO:<text>
  DONE:<path of the annotated video>
  ERROR:<text>               what went wrong; the exit code is then non-zero
"""

import argparse
import os
import sys
import time

PIP_HINT = ("Click 'Install AI Dependencies' or run: "
            "pip install ultralytics opencv-python \"numpy<2.0\"")


def emit(line):
    sys.stdout.write(line + "\n")
    sys.stdout.flush()


def fail(message, code=1):
    emit("ERROR:" + message)
    sys.exit(code)


class Parser(argparse.ArgumentParser):
    def error(self, message):
        fail("Bad arguments: " + message, 2)


def parse_arguments(argv):
    parser = Parser(description="Write a copy of a video with YOLO detections drawn on it.")
    parser.add_argument("--model", required=True, help="YOLO .pt model file")
    parser.add_argument("--video", required=True, help="input video file")
    parser.add_argument("--output", required=True, help="folder for the annotated video")
    # Values glued to their option, so a path starting with "-" is not taken for one.
    glued, i = [], 0
    while i < len(argv):
        if argv[i] in ("--model", "--video", "--output") and i + 1 < len(argv):
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


def output_paths(folder, video):
    stem = os.path.splitext(os.path.basename(video))[0] or "video"
    name, n = stem + "_annotated.mp4", 1
    while os.path.exists(os.path.join(folder, name)):
        n += 1
        name = "%s_annotated_%d.mp4" % (stem, n)
    return os.path.join(folder, name), os.path.join(folder, "." + name + ".part.mp4")


def run(args):
    if not os.path.isfile(args.model):
        fail("Model file not found: " + args.model, 2)
    YOLO = import_packages()
    import cv2
    try:
        model = YOLO(args.model)
    except Exception as e:
        fail("Could not load model %s (%s: %s)" % (args.model, type(e).__name__, e), 2)

    capture = cv2.VideoCapture(args.video)
    ok, frame = capture.read() if capture.isOpened() else (False, None)
    if not ok:
        fail("Cannot read video: " + args.video, 4)
    total = max(int(capture.get(cv2.CAP_PROP_FRAME_COUNT)), 0)
    fps = capture.get(cv2.CAP_PROP_FPS)
    fps = fps if 0 < fps < 1000 else 25.0
    height, width = frame.shape[:2]

    output = os.path.abspath(args.output)
    try:
        os.makedirs(output, exist_ok=True)
    except OSError as e:
        fail("Cannot create the output folder %s: %s" % (output, e.strerror), 5)
    final, partial = output_paths(output, args.video)
    writer = cv2.VideoWriter(partial, cv2.VideoWriter_fourcc(*"mp4v"), fps, (width, height))
    if not writer.isOpened():
        fail("Cannot write a video into " + output, 5)

    emit("TOTAL:%d" % total)
    emit("INFO:Video: %dx%d, %.2f fps, %d frames" % (width, height, fps, total))
    emit("INFO:Writing " + final)
    number, shown_percent, last_time = 0, -1, 0.0
    try:
        while ok:
            number += 1
            try:
                drawn = model(frame, verbose=False)[0].plot()
            except Exception as e:
                fail("Inference failed on frame %d (%s: %s)" % (number, type(e).__name__, e), 6)
            if drawn.shape[:2] != (height, width):
                drawn = cv2.resize(drawn, (width, height))
            writer.write(drawn)
            now = time.monotonic()
            percent = number * 100 // total if total else -1
            if (total and percent != shown_percent) or (not total and now - last_time >= 1.0):
                shown_percent, last_time = percent, now
                emit("PROGRESS:%d:%d" % (number, total))
            ok, frame = capture.read()
        writer.release()
        os.replace(partial, final)
    finally:
        writer.release()
        if os.path.exists(partial):
            os.remove(partial)
    capture.release()
    if number != total:
        emit("PROGRESS:%d:%d" % (number, number))
    emit("INFO:%d frames written" % number)
    emit("DONE:" + final)


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
