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
you copied new images into them, and returns to the image you were on.</p>
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
annotations folder.</p>
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
the back face. The cuboid closes by itself at the 8th click.</td></tr>
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

<h3>Step 4 &mdash; Navigate images</h3>
<p>Click an image in the list, use Up and Down in the list, the <b>&lt; Prev</b> and
<b>Next &gt;</b> buttons, or the Left/Right arrows, Page Up/Page Down, and A/D keys. Moving to
another image saves the one you leave when it holds shapes. Navigation stops at the first and
the last image; it does not wrap around.</p>
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
image being shown.</p>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>YOLO</b></td><td>Export writes <code>classes.txt</code> and one text file per
annotated image: class number, then the box centre and size as fractions of the image size.
<b>Export YOLO Pose labels...</b> lets you assign keypoint labels to the slots of each class
and writes a labels folder with <code>data.yaml</code>. Import reads such a folder back as
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
An image that cannot be read leaves its cell empty. A collage too large to build in memory
(several hundred images) is refused with the largest number of images that fits.</td></tr>
</table>
<p>Imports match files to images by file name without extension, add the boxes to those
images, and add new label names to the label list. Imported shapes are kept in memory and are
shown at once; an image's XML file is written when you edit it or move on from it (the image on
screen is also written when you close Brindle).</p>

<h3>Step 7 &mdash; Extract video frames</h3>
<p><b>Edit &rarr; Extract Video Frames...</b> opens a video (MP4, AVI, MOV, WMV, MKV, M4V, WebM and
more) in a frame viewer. Step through it with the <b>&lt;</b> and <b>&gt;</b> buttons or the arrow
keys, or drag the slider to jump. <b>Add to Dataset</b> saves the frame shown as a PNG image in the
images folder; the image list is refreshed when the viewer closes. This needs
<code>ffmpeg</code> and <code>ffprobe</code>, either next to Brindle or on the search path.</p>

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
disk is copied: an image without an XML file is copied alone.</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Convert BBoxes to Key Points</b></td><td>After a confirmation, writes for
every image that has an XML file a file with a keypoint at the centre of each of its bounding
boxes, with the box's label, into a <code>key_points</code> folder next to your annotations
folder. Other shapes are left out; images without boxes are skipped.</td></tr>
<tr><td><b>Convert Key Points to BBoxes</b></td><td>Asks for a radius (20 pixels unless you change
it), then writes a box of twice that size centred on every keypoint, kept inside the image when
its size is known, into a <code>bounding_boxes</code> folder next to your annotations
folder.</td></tr>
</table>
<p>Your own annotations folder is never changed by the split or the conversions. Both conversions
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

<h3>AI video frame extraction with YOLO</h3>
<p><b>Edit &rarr; AI Video Frame Extraction (YOLO)...</b> runs a YOLO model (<code>.pt</code> file)
over a video and saves the frames in which the labels you tick are detected &mdash; or, in
inverse mode, the frames in which they are not. Choose the model, the video and an output
folder; set the confidence threshold; optionally save only every Nth frame and save an
annotation XML file next to every saved frame. Frames go into a dated folder below the output
folder. A live preview and a coloured log show the progress; <b>Stop</b> ends the run.</p>
<h4>Supported YOLO versions</h4>
<p>Models trained with YOLOv10, YOLOv11 and YOLOv12 through the <code>ultralytics</code> package,
detection and pose models alike.</p>
<h4>Installing the AI dependencies</h4>
<p>The AI tools need Python 3.8 or newer with <code>ultralytics</code>, <code>opencv-python</code> and
NumPy older than version 2. Click <b>Install AI Dependencies</b> in either AI window to run the
bundled installer, or install them yourself:
<code>pip install ultralytics opencv-python "numpy&lt;2.0"</code>. Before each frame extraction
run Brindle checks the NumPy version and installs an older one if needed.</p>
<h4>Dedicated Python environment</h4>
<p>Brindle uses the first Python it finds among <code>python</code>, <code>python3</code> and the usual
installation folders. Installing the packages into a separate environment and putting that
environment's <code>python</code> first on your search path keeps them apart from other
projects.</p>
<h4>GPU acceleration</h4>
<p>The model runs on a GPU when the PyTorch installed with <code>ultralytics</code> supports one;
otherwise it runs on the CPU, which is slower but finds the same objects.</p>
<h4>Configuration</h4>
<p>Lower confidence thresholds find more objects and more false ones; higher thresholds keep only
confident detections. Saving every Nth frame speeds up long videos and avoids near-identical
frames.</p>
<h4>What gets drawn</h4>
<p><b>Annotate Video with YOLO...</b> writes a copy of the video with the detected boxes,
keypoints, labels and confidence scores drawn on each frame. The frame extraction saves
clean frames; its optional XML files hold the detected boxes, ready to load and correct in
Brindle.</p>

<h3>Keyboard shortcuts</h3>
<p>Ctrl means the Command key on macOS.</p>
<h4>Drawing shapes</h4>
<table width="100%" cellspacing="0" cellpadding="4">
<tr bgcolor="#2a2a2a"><td><b>Left drag</b></td><td>Draw a box, rotated box, ellipse or line</td></tr>
<tr><td><b>Click</b></td><td>Place a keypoint, or the next polygon / cuboid point</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Double-click</b> / <b>Enter</b></td><td>Close the polygon (3 points or more)</td></tr>
<tr><td><b>Escape</b></td><td>Drop the points in progress, or deselect</td></tr>
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
<tr bgcolor="#2a2a2a"><td><b>Left</b> / <b>Right</b></td><td>One frame back / forward</td></tr>
<tr><td><b>Shift+Left</b> / <b>Shift+Right</b></td><td>One second back / forward</td></tr>
<tr bgcolor="#2a2a2a"><td><b>Escape</b></td><td>Close the viewer</td></tr>
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
