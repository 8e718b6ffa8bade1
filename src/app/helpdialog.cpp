#include "app/helpdialog.h"

#include <QDesktopServices>
#include <QDialog>
#include <QHBoxLayout>
#include <QPushButton>
#include <QTextBrowser>
#include <QUrl>
#include <QVBoxLayout>

namespace {

// The product's web site: shown on the button, in the guide's last paragraph and opened
// by the button.
constexpr const char* kWebSiteHost = "brindle-annotate.org";
constexpr const char* kWebSiteUrl = "https://brindle-annotate.org";

const char* const kGuideHtml = R"HTML(<html><head><style>
body { font-family: 'Segoe UI', Arial, sans-serif; font-size: 13px; margin: 16px; }
h2 { color: #4db8ff; }
h3 { color: #ff9944; }
h4 { color: #cccccc; }
table { width: 100%; border-collapse: collapse; }
hr { border: 0; border-top: 1px solid #444; }
</style></head><body>
<h2>Brindle (Beta) &mdash; User Guide</h2>
<p>Brindle is an image-annotation tool for building object-detection, pose and segmentation
datasets. You point it at a folder of images and a folder for annotations; every change you
make is written at once to one Pascal VOC style XML file per image. There is no project file
and no Save command to remember.</p>
<p>When the window is too narrow for the whole toolbar, the commands that do not fit are behind
the <b>&raquo;</b> button at its right end: click it to show them.</p>
<hr>

<h3>Step 1 &mdash; Load your data</h3>
<p>Click <b>Load Data</b>. In the dialog choose the <b>Images folder</b> with the
<b>Change...</b> button under it, then the <b>Annotations folder</b>. When you pick the images
folder first and the annotations field is still empty, Brindle suggests a folder named
<code>annotations</code> inside the images folder. Press <b>OK</b>: a missing annotations folder
is created for you. Both folders may be empty when you start from scratch.</p>
<p>Brindle lists the files ending in .jpg, .jpeg, .png, .bmp, .gif and .tiff (in any letter
case; .tif is not listed), sorted by file name, upper-case names first. The first image is
shown at once. In the background Brindle then reads the existing XML files: every image that
already has an annotation file is marked with <b>*</b> in the list, and every label name found
in the files is added to the label list.</p>
<p>The <b>&#8634;</b> button next to <b>Load Data</b> reloads the same folders, for example after
you copied new images into them, and returns to the image you were on. When the images folder
holds no images any more, the canvas is cleared.</p>
<p>Each row of the image list has a small <b>X</b> at its right end. Clicking it asks whether to
take the image out of the session only, or to delete the image file from disk as well. The
image's XML file is never deleted by this, so a later import or split still finds it.</p>
<p>You can also start Brindle with the folders on the command line:
<code>brindle IMAGES_DIR [ANNOTATIONS_DIR]</code>.</p>

<h3>Step 2 &mdash; Manage labels</h3>
<p>The <b>Label:</b> box in the toolbar chooses the label that new shapes get. Click
<b>+/-</b> to open <b>Manage Labels</b>:</p>
<ul>
<li>Type a name and press <b>+ Add</b> or Return. Names are trimmed; a name that already exists
(ignoring letter case) is refused.</li>
<li>Click a colour swatch to choose the label's colour.</li>
<li>Double-click a name to rename it in place.</li>
<li>Drag rows to reorder them. The order is the order of the Label box and of the class numbers
in the YOLO and COCO exports.</li>
<li>Click the red <b>X</b> to delete a row, or <b>Delete All</b> to empty the list.</li>
</ul>
<p>Nothing changes until you press <b>OK</b>; <b>Cancel</b> discards every edit. The dialog only
edits the list: shapes that carry a deleted label keep it. When the list ends up empty, the
label <b>object</b> is put back. Label colours are kept in <code>label_colors.json</code> in the
annotations folder. When that file is damaged (cut short, not a list of labels, larger than
16&nbsp;MB or not a regular file), Brindle says so at the bottom right of the status bar and
keeps its bytes as <code>label_colors.json.orig</code> before it first writes the file
again.</p>
<p>Line breaks, tabs and other control characters in label names, typed or read from any file,
become blanks: a label name is always one line.</p>
<p>Choosing another label in the Label box while a shape is selected deselects that shape, so
your next drag draws a new shape with the new label instead of editing the old one.</p>

<h3>Step 3 &mdash; Draw and edit annotations</h3>
<p>Choose the kind of shape in the <b>Create:</b> box, then draw on the image with the left mouse
button:</p>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Bounding Box</b></td><td>Drag from one corner to the other. Boxes smaller than
4 pixels in either direction are discarded.</td></tr>
<tr><td><b>Polygon</b></td><td>Click each vertex. Double-click, or press Enter, to close the polygon
(at least 3 points). Escape drops the points placed so far.</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Line</b></td><td>Drag from start to end (at least 3 pixels long).</td></tr>
<tr><td><b>Keypoint</b></td><td>Click once on empty image area.</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Rotated Box</b></td><td>Drag out the box, then turn it with its rotation
handle.</td></tr>
<tr><td><b>Cuboid</b></td><td>Click 8 points: the four corners of the front face, then the four of
the back face (two quick clicks place two points). The cuboid closes by itself at the 8th
click.</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Ellipse</b></td><td>Drag out its bounding rectangle (each semi-axis at least
2 pixels); turn it with its rotation handle.</td></tr>
</table>
<p>Shapes are kept inside the image while you draw. A new shape is selected at once.</p>
<h4>Editing</h4>
<ul>
<li>Click a shape to select it; click empty area to deselect.</li>
<li>Drag inside the selected shape to move it.</li>
<li>Drag a handle to resize a box or to move a single point of the other kinds.</li>
<li>Drag the round handle above a rotated box or ellipse to rotate it.</li>
<li>Right-click a shape to change its label.</li>
</ul>
<p>The <b>Annotations</b> panel on the right lists the shapes of the current image. Click a row
to select the shape, click the row's <b>X</b> to delete the shape, and right-click a row to
change its label.</p>
<p>Every change is saved immediately. When the last shape of an image is deleted, its XML file
is removed. Undo (Ctrl+Z) and redo (Ctrl+Y) go up to 10 steps back and forth; each image's
history starts empty when you open it.</p>
<p>A write that fails (a full disk, a read-only folder ...) never harms the file already there:
it stays as it was, a <b>Save error</b> names the file and the reason, and while the image's last
write failed the status line ends in <b>NOT saved</b> instead of <b>saved</b>. Your shapes stay
in memory and are written at the next change, at Ctrl+S, or when you close Brindle. If some
images still cannot be written when you close it, Brindle tells you how many and asks before
it quits.</p>
<p>If another program (a sync tool, git, a teammate on a shared drive) changed an image's XML
file since Brindle read or wrote it, the shapes on your screen still win, but the other
version is first kept next to it as <code>name.xml.theirs</code> and the status bar says so; a
later conflict replaces that copy. Brindle never reads these copies.</p>

<h3>Step 4 &mdash; Navigate images</h3>
<p>Click an image in the list, use Up and Down in the list, the <b>&lt; Prev</b> and
<b>Next &gt;</b> buttons, or the Left/Right arrows, Page Up/Page Down, and A/D keys; these keys
work whichever pane has the focus, the image list included. Moving to
another image saves the one you leave when it holds shapes. Navigation stops at the first and
the last image; it does not wrap around. When an image cannot be opened (<b>Load error</b>), the
previous image stays on screen while the list highlights the broken one, and Prev and Next go on
from the highlighted row, so you can walk past a broken file.</p>
<p>Photos up to 250 megapixels open (drone and aerial cameras make them); a file that declares a
larger image, as a decompression bomb does, is refused with the reason.</p>
<p>The padlock button next to the zoom buttons is the <b>auto-zoom lock</b>. While it is on (red),
every image you switch to is zoomed so that all its annotations fill the view with a 50 pixel
border; images without annotations are shown whole.</p>

<h3>Step 5 &mdash; Zoom and pan</h3>
<ul>
<li>The mouse wheel zooms around the mouse pointer.</li>
<li><b>+</b> (or <b>=</b>) and <b>-</b> zoom in and out around the selected shape, or around all
shapes, or the image centre; <b>F</b> fits the whole image. The toolbar buttons <b>+</b>,
<b>-</b> and <b>fit</b> do the same.</li>
<li>Drag with the right mouse button on empty area, or hold Space and drag with the left button,
to pan.</li>
</ul>

<h3>Step 6 &mdash; Export and import</h3>
<p>The <b>Export / Import</b> menu converts the loaded dataset. Exports include the edits on the
image being shown and every annotation file of the dataset, also those of images you have not
opened yet: before an export Brindle reads the files it has not read so far (and, for the YOLO
Pose export, the image sizes), with a progress window you can cancel when this takes a
while. A file an export cannot write (a full disk, say) leaves any older file of that name as
it was, and the export's message names the reason.</p>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>YOLO</b></td><td>Export writes <code>classes.txt</code> and one text file per
annotated image: class number, then the box centre and size as fractions of the image size.
<b>Export YOLO Pose labels...</b> lets you assign keypoint labels to the slots of each class
and writes a labels folder with <code>data.yaml</code>, where a class name that YAML would read
as something else (<code>no</code>, <code>null</code>, <code>#1</code>, <code>sign: stop</code>,
a name with leading or trailing blanks ...) is written in double quotes. Import reads such a folder back as
bounding boxes.</td></tr>
<tr><td><b>COCO</b></td><td>One JSON file with images, categories and box annotations.</td></tr>
<tr bgcolor="#2a2a2a"><td><b>DOTA</b></td><td>One text file per image with the four corners of each
shape's box and its label.</td></tr>
<tr><td><b>CSV</b></td><td>One file, one row per annotation.</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Other</b></td><td>Export or import the label names as a text file, one
name per line. Importing label names works even before a dataset is loaded.</td></tr>
<tr><td><b>Collage</b></td><td><b>Export Collage...</b> asks how many annotated images to show
and whether to pick them at random or from the top of the list, then where to save the PNG.
Each image is cropped to the area of its shapes with some padding, enlarged or reduced to fit
a 1280 x 1024 cell, and drawn with its boxes and labels; the cells are laid out in a grid on a
dark background. You can cancel while the images are processed, and then no file is written.
An image that cannot be read leaves its cell empty. A collage larger than your computer's free
memory (1000 images take some 4 GB) is refused with the largest number of images that fits;
a collage of several hundred images takes a minute or more to write.</td></tr>
</table>
<p>Imports match files to images by file name without extension, add the boxes to those
images, and add new label names to the label list. Imported shapes are kept in memory and are
shown at once; an image's XML file is written when you edit it or move on from it, and when you
close Brindle every image whose imported shapes are not written yet is written.</p>

<h3>Step 7 &mdash; Extract video frames</h3>
<p><b>Edit &rarr; Extract Video Frames...</b> lets you pick a video (MP4, AVI, MOV, WMV, MKV, M4V,
WebM, FLV or TS) and opens it in a frame viewer that shows one frame at a time, starting with the
first. Step one frame back or forward with the <b>&lt;</b> and <b>&gt;</b> buttons or the
<b>Left</b> and <b>Right</b> arrow keys; hold <b>Shift</b> to jump one second. Drag the slider and
let go to jump to any point of the video. The line under the frame shows the frame number and the
time of the frame against the length of the video; the buttons grey out at the first and the last
frame.</p>
<p><b>Add to Dataset</b> saves the frame shown, at the video's full resolution, as a PNG image named
<code>brindle_</code> followed by the date and time (for example
<code>brindle_20240131_142501_123.png</code>) in the images folder; the button briefly shows
<b>Saved!</b>. When you close the viewer the image list is read again, so the new frames appear in
it, and the list starts again at its first image (shapes not yet written are written first).
Without a loaded dataset the frames are saved in Brindle's working folder and you are told so
before the viewer opens.</p>
<p>Brindle does not decode video itself: it runs <code>ffmpeg</code> and <code>ffprobe</code>, taken
from Brindle's own folder when they are there, otherwise from the search path. If
<code>ffmpeg</code> cannot be run, a message explains how to install it. A file without a video
stream, or a frame that cannot be read, is reported in the line at the top of the viewer; each
frame takes as long as <code>ffmpeg</code> needs to find it, which grows with the distance to the
video's previous key frame.</p>

<h3>Edit menu</h3>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Rename Label...</b></td><td>Renames a label on every shape of the whole
dataset, including images not yet opened, and in the label list.</td></tr>
<tr><td><b>Remove Label...</b></td><td>After a confirmation, deletes every shape with the chosen
label from the dataset and removes the label from the list. This cannot be undone.</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Extract Video Frames...</b></td><td>See Step 7.</td></tr>
<tr><td><b>AI Video Frame Extraction (YOLO)...</b></td><td>See the AI section below.</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Annotate Video with YOLO...</b></td><td>Runs a YOLO model over every frame of
a video and writes an annotated copy of the video.</td></tr>
<tr><td><b>Split Dataset into Train/Test subsets...</b></td><td>Asks for the Train percentage (Test
is the rest) and an output folder, shuffles the images at random and copies them byte for byte,
with their XML files, into <code>Train/images</code>, <code>Train/annotations</code>,
<code>Test/images</code> and <code>Test/annotations</code> there. Train gets at least one image.
Files of the same name are replaced; other files in those folders stay. Only what is saved on
disk is copied: an image without an XML file is copied alone. A long split shows its progress
with a Cancel button; files copied before you cancel stay.</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Convert BBoxes to Key Points</b></td><td>After a confirmation, writes for
every image that has an XML file a file with a keypoint at the centre of each of its bounding
boxes, with the box's label, into a <code>key_points</code> folder next to your annotations
folder. Other shapes are left out; images without boxes are skipped.</td></tr>
<tr><td><b>Convert Key Points to BBoxes</b></td><td>Asks for a radius (20 pixels unless you change
it), then writes a box of twice that size centred on every keypoint, kept inside the image when
its size is known, into a <code>bounding_boxes</code> folder next to your annotations
folder.</td></tr>
</table>
<p>Your own annotations folder is never changed by the split or the conversions (a conversion whose
output folder would be your annotations folder itself refuses to run). Both conversions
show their progress with a Cancel button (files written before you cancel stay) and end with a
summary of the images processed and skipped; running one again replaces the files of the same
images. If some files cannot be written or copied, the summary says how many; the rest of the
run goes on.</p>

<h3>Annotation file format</h3>
<p>Each image <code>name.ext</code> has the file <code>name.xml</code> in the annotations folder, in
the Pascal VOC layout: <code>folder</code>, <code>filename</code>, <code>path</code>,
<code>size</code> and one <code>object</code> per shape with its <code>name</code> (the label) and
<code>type</code>. Bounding boxes use the classic <code>bndbox</code> element with integer
<code>xmin</code>, <code>ymin</code>, <code>xmax</code>, <code>ymax</code>, so files from other VOC
tools load as boxes. The other kinds have elements of their own: <code>polygon</code>,
<code>line</code>, <code>keypoint</code> (with <code>visible</code>), <code>rotatedbox</code> (angle
and four corners), <code>cuboid</code> (eight points) and <code>ellipse</code> (centre, radii and
angle). Coordinates are image pixels with the origin at the top left.</p>
<p>A file with an XML error partway (for example a bare <code>&amp;</code> in a label) is read up
to the error: the shapes before it are shown, and the status bar tells you once at which line
the error is and how many shapes were read. Before Brindle first writes over such a file, or
deletes it, it keeps the original next to it as <code>name.xml.orig</code>
(<code>name.xml.orig2</code> and so on when a different copy is already there), so that the
shapes after the error are never lost. Brindle itself never reads these copies.</p>
<p>Only the dataset's own regular files are read and written. An annotation file larger than
256&nbsp;MB, or one that is a pipe or a device, is not read (the status bar says why) and is kept
as <code>.orig</code> before it is replaced. An annotation file that is a link is written through
only when it points into the annotations folder; a link to a file elsewhere is never written
through, and saving such an image ends in a <b>Save error</b> that says so.</p>

<h3>AI video frame extraction with YOLO</h3>
<p><b>Edit &rarr; AI Video Frame Extraction (YOLO)...</b> runs a YOLO model (<code>.pt</code> file)
over a video and saves the frames in which the labels you tick are detected &mdash; or, in
inverse mode, the frames in which none of them is. Labels match the model's class names
without regard to case. With no label ticked, every frame with any detection is kept (in
inverse mode: every frame in which nothing at all is detected). Choose the model, the video
and an output folder, set the confidence threshold and click <b>Run Inference</b>.</p>
<p>Each run writes into a new folder below the output folder, named after the video and the
start time (<code>street_20250314_093012</code>). Frames are JPG files named after the video
and the frame number, counted from 1 (<code>street_frame000042.jpg</code>). With <b>Save
Annotation XML Files</b> the folder holds <code>images</code> and <code>annotations</code>:
each frame gets an XML file in Brindle's own format with every object the model found in it,
so you can open the two folders with <b>Load Data</b> and correct the boxes. <b>Save every Nth
frame only</b> runs the model on frames 1, N+1, 2N+1 ... and skips the others.</p>
<p>The log shows every kept frame in green with the labels found in it, frames with
detections that were not kept in grey, and problems in red and orange. The live preview shows
the frame being processed with the detections drawn on it. <b>Stop</b> ends the run at once;
the frames already saved stay, and no half-written file is left under a frame's name.</p>
<h4>Supported YOLO versions</h4>
<p>Models trained with YOLOv10, YOLOv11 and YOLOv12 through the <code>ultralytics</code> package,
detection and pose models alike. The version chosen in the window is for your reference only;
the model file itself decides.</p>
<h4>Installing the AI dependencies</h4>
<p>The AI tools need Python 3.8 or newer with <code>ultralytics</code>, <code>opencv-python</code> and
NumPy older than version 2. <b>Install AI Dependencies</b>, in either AI window, runs the bundled
installer (it needs an internet connection and can take 5 to 15 minutes; its progress appears
in the log). It does nothing while a run is going: stop the run or let it end first. On Linux
and macOS it:</p>
<ul>
<li>uses the Python the AI windows will use: the first of <code>python</code> and
<code>python3</code> on the search path that runs;</li>
<li>checks that the Python Package Index can be reached and stops with a clear message if not;</li>
<li>installs the packages with that Python's <code>pip</code>: into the Python itself when it
is a virtual or conda environment or its folder is writable, otherwise for your user only
(<code>pip --user</code>);</li>
<li>never forces packages into a Python that the system manages (Debian's and Ubuntu's
<code>/usr/bin/python3</code>, Homebrew's Python): it creates a private environment instead, in
<code>~/.local/share/brindle/python-env</code> (macOS: <code>~/Library/Application
Support/Brindle/python-env</code>), and links <code>~/.local/bin/python</code> to it. Make sure
<code>~/.local/bin</code> comes first on your search path, log in again and restart Brindle;</li>
<li>on a Mac without Python, asks macOS to install the Command Line Tools, which include
Python&nbsp;3; run the installer again when they are in place.</li>
</ul>
<p>Or install the packages yourself:
<code>pip install ultralytics opencv-python "numpy&lt;2.0"</code>. Before each frame extraction
run Brindle checks the NumPy version and installs an older one with <code>pip</code> if
needed.</p>
<h4>Dedicated Python environment</h4>
<p>Brindle uses the first Python it finds among <code>python</code>, <code>python3</code> on the
search path (and the usual Windows installation folders). To use a virtual or conda
environment of your own, start Brindle from a terminal in which it is activated, or link its
<code>python</code> as <code>~/.local/bin/python</code>. On macOS a program started from the
Finder or the Dock sees only the system folders on its search path, so it finds
<code>/usr/bin/python3</code>; start Brindle from a terminal to use another Python.</p>
<h4>GPU acceleration</h4>
<p>The model runs on an NVIDIA GPU when the PyTorch installed with <code>ultralytics</code> can
use it (CUDA); otherwise it runs on the CPU, which is slower but finds the same objects.
Saved frames are written while the model works on the next ones.</p>
<h4>Configuration</h4>
<p>Lower confidence thresholds find more objects and more false ones; higher thresholds keep only
confident detections. Saving every Nth frame speeds up long videos and avoids near-identical
frames.</p>
<h4>What gets drawn</h4>
<p><b>Edit &rarr; Annotate Video with YOLO...</b> runs the model on every frame and writes a
copy of the video, <code>&lt;video name&gt;_annotated.mp4</code> in the output folder, with the
detected boxes, keypoints (for pose models), labels and confidence scores drawn on each frame,
at the frame size and rate of the original. An existing file is never overwritten: the next
run writes <code>_annotated_2.mp4</code> and so on. The video gets its name only when the last
frame is written, so a stopped run leaves no unplayable file under that name. The frame extraction
saves clean frames; its optional XML files hold the detected boxes.</p>

<h3>Pre-labelling with YOLO</h3>
<p><b>Edit &rarr; Pre-label with YOLO...</b> runs a YOLO model over the images of the loaded
dataset. What it finds becomes <i>proposals</i>: shapes you review instead of drawing. Choose the
model file; its classes appear in the <b>Class Mapping</b> table, each going to the label of the
same name (letter case aside). A class without one becomes a new label of its own name, unless
some of the model's classes found your labels: then it is set to <b>(skip)</b>, so that a model
trained on many classes brings only yours. Pick another label, type a new name, or choose
<b>(skip)</b> for any class; <b>Own Names</b> and <b>Skip Unmatched</b> set the whole table one way
or the other. Then choose which images to run on:
<b>Unlabelled images only</b> (no annotation file and no shapes), <b>All images</b> or the
<b>Current image only</b>, set the confidence and IoU thresholds and the most shapes per image, and
click <b>Run Pre-labelling</b>. The log lists every image as its proposals arrive, and they appear
in the window while the run goes on. <b>Stop</b> keeps what has arrived. An image that cannot be
read, or that the model fails on, is reported in red and the run goes on with the next one.</p>
<p>The model decides the kind of shape: detection models propose boxes, segmentation models
polygons (the outer outline, holes left out, at most 64 corners), pose models a box plus a
keypoint for each keypoint the model is sure enough of (named after the model's keypoint names, or
<code>kp0</code>, <code>kp1</code> ...), oriented-box (OBB) models rotated boxes.</p>
<p>Proposals are not annotations until you accept them. They are drawn dashed in their label's
colour with the model's confidence, their number shows under the image counter, and the image
list marks every image with open proposals with a dashed amber ring. They are kept in the hidden
folder <code>.proposals</code> inside the annotations folder, one small file per image, and are
still there when you load the dataset again; the exports, the split, the collage, the conversions
and Rename / Remove Label never see them. A new run replaces the proposals an image still has
open, and leaves out what repeats a shape the image already has (the same label in nearly the
same place).</p>
<h4>Reviewing proposals</h4>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Click</b> a proposal</td><td>Select it. When an image is shown, its most
confident proposal is selected</td></tr>
<tr><td><b>Enter</b></td><td>Accept the selected proposal: it becomes an ordinary shape and is saved
at once</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Shift+Enter</b></td><td>Accept every proposal of the image</td></tr>
<tr><td><b>Double-click</b> a proposal</td><td>Accept it</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Drag</b> a selected proposal or its handles</td><td>Accept it and move or
resize it in the same drag</td></tr>
<tr><td><b>Delete</b> / <b>Backspace</b></td><td>Reject the selected proposal</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Shift+Delete</b></td><td>Reject every proposal of the image</td></tr>
<tr><td><b>Right-click</b> a proposal</td><td>Accept, Reject, or accept it with another label</td></tr>
<tr bgcolor="#2a2a2a"><td><b>N</b> / <b>Shift+N</b></td><td>Next / previous image with open proposals
(from the last image on to the first)</td></tr>
<tr><td><b>Escape</b></td><td>Deselect the proposal</td></tr>
</table>
<p>Each accept or reject is one step of <b>Ctrl+Z</b> / <b>Ctrl+Y</b>: undoing an accept takes the
shape away and brings the proposal back. The keys work whichever pane has the focus. Selecting a shape
deselects the proposal, so Delete then deletes the shape as usual.</p>

<h3>Keyboard shortcuts</h3>
<p>Ctrl means the Command key on macOS. The keys of the editing, clipboard, navigation and zoom
tables work whichever pane has the focus: the canvas, the image list or the Annotations panel.
In the lists Up and Down still move through the rows, and the arrow keys move a shape only
while the canvas has the focus.</p>
<h4>Drawing shapes</h4>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Left drag</b></td><td>Draw a box, rotated box, ellipse or line</td></tr>
<tr><td><b>Click</b></td><td>Place a keypoint, or the next polygon / cuboid point</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Double-click</b> / <b>Enter</b></td><td>Close the polygon (3 points or more)</td></tr>
<tr><td><b>Escape</b></td><td>Drop the points in progress or the shape being dragged out, or
deselect</td></tr>
</table>
<h4>Editing</h4>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Delete</b> / <b>Backspace</b></td><td>Delete the selected shape (all shapes in
select-all mode)</td></tr>
<tr><td><b>Ctrl+Z</b></td><td>Undo</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Ctrl+Y</b></td><td>Redo</td></tr>
<tr><td><b>Ctrl+S</b> / <b>Ctrl+M</b> / <b>Ctrl+Escape</b></td><td>Save the current image now (also
writes a file for an image without shapes)</td></tr>
</table>
<h4>Selection and clipboard</h4>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Ctrl+A</b></td><td>Select all shapes; drag any of them to move them all</td></tr>
<tr><td><b>Ctrl+C</b></td><td>Copy the selected shape, or all shapes in select-all mode</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Ctrl+V</b></td><td>Paste at the same coordinates, also onto another image</td></tr>
</table>
<h4>Moving the selected annotation</h4>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Arrow keys</b></td><td>Move it by 1 pixel</td></tr>
<tr><td><b>Shift+Arrow keys</b></td><td>Move it by 10 pixels</td></tr>
</table>
<h4>Image navigation</h4>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Right</b> / <b>Page Down</b> / <b>D</b></td><td>Next image</td></tr>
<tr><td><b>Left</b> / <b>Page Up</b> / <b>A</b></td><td>Previous image</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Up</b> / <b>Down</b></td><td>Previous / next image while the image list has
the focus</td></tr>
</table>
<p>While a shape is selected on the canvas, the arrow keys move the shape instead; press Escape
to deselect it first.</p>
<h4>Zoom and pan</h4>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Mouse wheel</b></td><td>Zoom around the pointer</td></tr>
<tr><td><b>+</b> / <b>=</b></td><td>Zoom in</td></tr>
<tr bgcolor="#2a2a2a"><td><b>-</b></td><td>Zoom out</td></tr>
<tr><td><b>F</b></td><td>Fit the image to the window</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Space + left drag</b></td><td>Pan</td></tr>
<tr><td><b>Right drag</b> on empty area</td><td>Pan</td></tr>
</table>
<h4>Context menus</h4>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Right-click a shape</b></td><td>Change its label</td></tr>
<tr><td><b>Right-click an Annotations row</b></td><td>Change that shape's label</td></tr>
</table>
<h4>Frame viewer</h4>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Left</b> / <b>Right</b></td><td>One frame back / forward (also the <b>&lt;</b> and <b>&gt;</b> buttons)</td></tr>
<tr><td><b>Shift+Left</b> / <b>Shift+Right</b></td><td>One second back / forward</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Drag the slider</b></td><td>Jump to that point of the video when you let go</td></tr>
<tr><td><b>Add to Dataset</b></td><td>Save the frame shown as a PNG in the images folder</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Escape</b></td><td>Close the viewer (the image list is refreshed)</td></tr>
</table>
<hr>
<p align="center">For updates, bug reports, feature requests and questions visit:<br>
<a href="%URL%">%HOST%</a></p>
</body></html>
)HTML";

} // namespace

void showHelpDialog(QWidget* parent)
{
    auto* dialog = new QDialog(parent);
    dialog->setWindowTitle(QStringLiteral("Brindle (Beta) - Help & User Guide"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->resize(740, 680);

    auto* layout = new QVBoxLayout(dialog);
    layout->setContentsMargins(0, 0, 0, 12);
    layout->setSpacing(8);

    auto* browser = new QTextBrowser(dialog);
    browser->setObjectName(QStringLiteral("helpBrowser"));
    browser->setOpenExternalLinks(true);
    browser->setHtml(QString::fromUtf8(kGuideHtml)
                         .replace(QLatin1String("%URL%"), QLatin1String(kWebSiteUrl))
                         .replace(QLatin1String("%HOST%"), QLatin1String(kWebSiteHost)));
    layout->addWidget(browser, 0);

    auto* buttons = new QHBoxLayout;
    buttons->setContentsMargins(12, 0, 12, 0);
    auto* siteButton =
        new QPushButton(QStringLiteral("Open ") + QLatin1String(kWebSiteHost), dialog);
    siteButton->setObjectName(QStringLiteral("webSiteButton"));
    siteButton->setStyleSheet(QStringLiteral("QPushButton { color: #4db8ff; font-weight: bold; }"));
    buttons->addWidget(siteButton);
    buttons->addStretch();
    auto* closeButton = new QPushButton(QStringLiteral("Close"), dialog);
    closeButton->setObjectName(QStringLiteral("closeButton"));
    closeButton->setDefault(true);
    buttons->addWidget(closeButton);
    layout->addLayout(buttons);

    QObject::connect(siteButton, &QPushButton::clicked, dialog,
                     [] { QDesktopServices::openUrl(QUrl(QString::fromLatin1(kWebSiteUrl))); });
    QObject::connect(closeButton, &QPushButton::clicked, dialog, &QDialog::close);

    dialog->show();
}
