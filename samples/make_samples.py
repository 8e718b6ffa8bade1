#!/usr/bin/python3
"""Draws the small demo dataset that `make run` opens.

Writes samples/dataset/images/*.png (synthetic street-like scenes drawn with OpenCV),
samples/dataset/annotations/*.xml holding all seven shape kinds, and
samples/dataset/annotations/label_colors.json. Deterministic: running it again gives
the same files.
"""
import json
import math
import os

import cv2
import numpy as np

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "dataset")
IMAGES = os.path.join(OUT, "images")
ANNOTATIONS = os.path.join(OUT, "annotations")
W, H = 640, 426


def scene(seed):
    rng = np.random.default_rng(seed)
    img = np.zeros((H, W, 3), np.uint8)
    # sky gradient and road
    for y in range(H):
        t = y / H
        img[y, :] = (int(200 - 80 * t), int(170 - 60 * t), int(120 - 40 * t))
    cv2.rectangle(img, (0, int(H * 0.62)), (W, H), (70, 70, 72), -1)
    for x in range(0, W, 80):
        cv2.rectangle(img, (x + 10, int(H * 0.80)), (x + 50, int(H * 0.80) + 6), (220, 220, 220), -1)
    # buildings
    for i in range(6):
        x = int(rng.integers(0, W - 90))
        w = int(rng.integers(50, 110))
        h = int(rng.integers(80, 200))
        col = tuple(int(c) for c in rng.integers(60, 160, 3))
        cv2.rectangle(img, (x, int(H * 0.62) - h), (x + w, int(H * 0.62)), col, -1)
    return img, rng


def car(img, x, y, w, h, colour):
    cv2.rectangle(img, (x, y + h // 3), (x + w, y + h), colour, -1)
    cv2.rectangle(img, (x + w // 5, y), (x + 4 * w // 5, y + h // 3 + 2), colour, -1)
    cv2.circle(img, (x + w // 5, y + h), h // 4, (20, 20, 20), -1)
    cv2.circle(img, (x + 4 * w // 5, y + h), h // 4, (20, 20, 20), -1)


def person(img, x, y, s):
    cv2.circle(img, (x, y), s // 6, (170, 190, 230), -1)
    cv2.line(img, (x, y + s // 6), (x, y + s // 2), (40, 40, 160), 4)
    cv2.line(img, (x, y + s // 2), (x - s // 6, y + s), (40, 40, 40), 4)
    cv2.line(img, (x, y + s // 2), (x + s // 6, y + s), (40, 40, 40), 4)
    cv2.line(img, (x - s // 5, y + s // 3), (x + s // 5, y + s // 3), (40, 40, 160), 3)


def f2(v):
    return "%.2f" % v


def obj(label, kind, inner):
    lines = ["  <object>", f"    <name>{label}</name>", f"    <type>{kind}</type>",
             "    <pose>Unspecified</pose>", "    <truncated>0</truncated>",
             "    <difficult>0</difficult>"]
    lines += inner
    lines.append("  </object>")
    return lines


def pts(tag, points, extra=()):
    out = [f"    <{tag}>"] + list(extra)
    for x, y in points:
        out += ["      <pt>", f"        <x>{f2(x)}</x>", f"        <y>{f2(y)}</y>", "      </pt>"]
    out.append(f"    </{tag}>")
    return out


def write_xml(name, objects):
    path = name
    lines = ['<?xml version="1.0" encoding="UTF-8"?>', "<annotation>",
             "  <folder>images</folder>", f"  <filename>{name}</filename>",
             f"  <path>{path}</path>", "  <source>", "    <database>Unknown</database>",
             "  </source>", "  <size>", f"    <width>{W}</width>", f"    <height>{H}</height>",
             "    <depth>3</depth>", "  </size>", "  <segmented>0</segmented>"]
    for o in objects:
        lines += o
    lines.append("</annotation>")
    base = os.path.splitext(name)[0]
    with open(os.path.join(ANNOTATIONS, base + ".xml"), "w", encoding="utf-8") as f:
        f.write("\n".join(lines) + "\n")


def rotated(cx, cy, w, h, deg):
    a = math.radians(deg)
    u = (math.cos(a), math.sin(a))
    v = (-math.sin(a), math.cos(a))
    out = []
    for su, sv in ((-1, -1), (1, -1), (1, 1), (-1, 1)):
        out.append((cx + su * w / 2 * u[0] + sv * h / 2 * v[0], cy + su * w / 2 * u[1] + sv * h / 2 * v[1]))
    return out


def main():
    os.makedirs(IMAGES, exist_ok=True)
    os.makedirs(ANNOTATIONS, exist_ok=True)

    # street_01: boxes, a polygon and a line
    img, _ = scene(1)
    car(img, 60, 250, 150, 60, (40, 40, 200))
    car(img, 380, 240, 180, 70, (200, 120, 30))
    person(img, 300, 200, 90)
    cv2.imwrite(os.path.join(IMAGES, "street_01.png"), img)
    write_xml("street_01.png", [
        obj("car", "bndbox", ["    <bndbox>", "      <xmin>55</xmin>", "      <ymin>250</ymin>",
                              "      <xmax>214</xmax>", "      <ymax>326</ymax>", "    </bndbox>"]),
        obj("car", "bndbox", ["    <bndbox>", "      <xmin>375</xmin>", "      <ymin>240</ymin>",
                              "      <xmax>564</xmax>", "      <ymax>328</ymax>", "    </bndbox>"]),
        obj("person", "bndbox", ["    <bndbox>", "      <xmin>280</xmin>", "      <ymin>183</ymin>",
                                 "      <xmax>320</xmax>", "      <ymax>292</ymax>", "    </bndbox>"]),
        obj("road", "polygon", pts("polygon", [(0, 264), (639, 264), (639, 425), (0, 425)])),
        obj("lane", "line", ["    <line>", "      <x1>330.00</x1>", "      <y1>344.00</y1>",
                             "      <x2>610.00</x2>", "      <y2>344.00</y2>", "    </line>"]),
    ])

    # street_02: keypoints of a person, an ellipse
    img, _ = scene(2)
    person(img, 200, 170, 150)
    cv2.ellipse(img, (470, 120), (60, 30), 20, 0, 360, (0, 215, 255), -1)
    cv2.imwrite(os.path.join(IMAGES, "street_02.png"), img)
    kps = [("head", 200, 170, 1), ("left_hand", 170, 220, 1), ("right_hand", 230, 220, 1),
           ("left_foot", 175, 320, 1), ("right_foot", 225, 320, 0)]
    objects = [obj("person", "bndbox", ["    <bndbox>", "      <xmin>165</xmin>", "      <ymin>145</ymin>",
                                        "      <xmax>235</xmax>", "      <ymax>322</ymax>", "    </bndbox>"])]
    for name, x, y, vis in kps:
        objects.append(obj(name, "keypoint", ["    <keypoint>", f"      <x>{f2(x)}</x>", f"      <y>{f2(y)}</y>",
                                              f"      <visible>{vis}</visible>", "    </keypoint>"]))
    objects.append(obj("sign", "ellipse", ["    <ellipse>", "      <cx>470.00</cx>", "      <cy>120.00</cy>",
                                          "      <rx>60.00</rx>", "      <ry>30.00</ry>",
                                          "      <angle>20.0000</angle>", "    </ellipse>"]))
    write_xml("street_02.png", objects)

    # street_03: a rotated box and a cuboid
    img, _ = scene(3)
    box = np.array([[int(x), int(y)] for x, y in rotated(200, 300, 160, 60, -15)], np.int32)
    cv2.fillPoly(img, [box], (60, 160, 60))
    front = [(380, 230), (500, 230), (500, 330), (380, 330)]
    back = [(420, 200), (540, 200), (540, 300), (420, 300)]
    cv2.fillPoly(img, [np.array(back, np.int32)], (90, 90, 150))
    cv2.fillPoly(img, [np.array(front, np.int32)], (120, 120, 200))
    cv2.imwrite(os.path.join(IMAGES, "street_03.png"), img)
    write_xml("street_03.png", [
        obj("truck", "rotatedbox", pts("rotatedbox", rotated(200, 300, 160, 60, -15),
                                       extra=["      <angle>-15.0000</angle>"])),
        obj("crate", "cuboid", pts("cuboid", front + back)),
    ])

    # street_04: not annotated yet
    img, _ = scene(4)
    car(img, 250, 260, 170, 65, (30, 160, 200))
    cv2.imwrite(os.path.join(IMAGES, "street_04.png"), img)

    palette = ["#00dcdc", "#ff6464", "#64dc64", "#ffc800", "#b464ff", "#ffa028", "#50c8ff", "#ff50c8"]
    names = ["object", "car", "person", "road", "lane", "head", "left_hand", "right_hand",
             "left_foot", "right_foot", "sign", "truck", "crate"]
    labels = [(n, palette[i % len(palette)]) for i, n in enumerate(names)]
    with open(os.path.join(ANNOTATIONS, "label_colors.json"), "w", encoding="utf-8") as f:
        json.dump([{"color": c, "name": n} for n, c in labels], f, indent=4)
        f.write("\n")


if __name__ == "__main__":
    main()
