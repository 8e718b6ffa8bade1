#include "app/mainwindow.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>
#include <QSplitter>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/helpdialog.h"
#include "app/imagelistwidget.h"
#include "app/proposalreview.h"
#include "app/theme.h"
#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "labels/labellistmodel.h"
#include "model/labelpalette.h"
#include "ui/sectionmenu.h"

namespace {

constexpr int kToolBarHeight = 34;

// Toolbar buttons whose style sheet sets the horizontal padding. QToolButton's own size
// hint reserves the width of a blank on each side of the text on top of that padding;
// with wide fonts (DejaVu Sans) the toolbar then outgrows a 1280 px window and "Help"
// lands in the overflow menu. Here the padding from the style sheet is the only margin.
class SheetPaddedToolButton : public QToolButton
{
public:
    using QToolButton::QToolButton;

    QSize sizeHint() const override
    {
        QSize size = QToolButton::sizeHint();
        if (icon().isNull() && !text().isEmpty())
            size.rwidth() -= 2 * fontMetrics().horizontalAdvance(QLatin1Char(' '));
        return size;
    }
};

// Paints the toolbar's overflow button, which Qt adds when the window is too narrow for
// every control, in the look of the other toolbar buttons: an outline and a chevron. The
// style would draw its arrow icon inside the style sheet's padding, where it has no room.
class OverflowButtonPainter : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        auto* button = qobject_cast<QToolButton*>(watched);
        if (!button || event->type() != QEvent::Paint)
            return false;
        QPainter p(button);
        p.setRenderHint(QPainter::Antialiasing);
        const QColor ink = button->underMouse() || button->isChecked() ? QColor(0xff, 0x44, 0x44)
                                                                       : QColor(0xaa, 0xaa, 0xaa);
        const QRectF frame = QRectF(button->rect()).adjusted(0.5, 3.5, -0.5, -3.5);
        p.setPen(QPen(ink, 1));
        p.drawRoundedRect(frame, 3, 3);
        p.setPen(QPen(ink, 1.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        const QPointF c = frame.center();
        for (double dx : {-2.0, 1.5}) {
            const QPointF tip(c.x() + dx + 1.5, c.y());
            p.drawPolyline(QPolygonF({tip + QPointF(-2.5, -3.5), tip, tip + QPointF(-2.5, 3.5)}));
        }
        return true;
    }
};

// The notes of the status bar: newest first, cut short with "..." where the bar ends (the
// tool tip holds them all), so that a long note never widens the window.
class NoteLabel : public QLabel
{
public:
    using QLabel::QLabel;

    QSize minimumSizeHint() const override { return QSize(0, QLabel::minimumSizeHint().height()); }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setPen(palette().color(QPalette::WindowText));
        const QRect area = contentsRect();
        p.drawText(area, Qt::AlignLeft | Qt::AlignVCenter,
                   fontMetrics().elidedText(text(), Qt::ElideRight, area.width()));
    }
};

QToolButton* makeZoomButton(const QString& text, const QString& toolTip)
{
    auto* button = new SheetPaddedToolButton;
    button->setText(text);
    button->setToolTip(toolTip);
    button->setStyleSheet(Theme::smallButtonStyle());
    button->setCursor(Qt::PointingHandCursor);
    return button;
}

QIcon makeLockIcon(const QColor& color)
{
    QPixmap pixmap(12, 12);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(color, 1.1, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);

    QPainterPath shackle;
    shackle.moveTo(3.84, 4.44);
    shackle.lineTo(3.84, 2.16);
    shackle.arcTo(QRectF(3.84, 0.72, 4.32, 2.88), 180.0, -180.0);
    shackle.lineTo(8.16, 4.44);
    p.drawPath(shackle);

    p.drawRoundedRect(QRectF(0.96, 4.44, 10.08, 6.72), 1.5, 1.5);

    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawEllipse(QRectF(5.04, 6.3024, 1.92, 1.92));
    p.end();
    return QIcon(pixmap);
}

QToolButton* makeToolButton(const QString& objectName, const QString& text,
                            const QString& toolTip, const QString& style)
{
    auto* button = new SheetPaddedToolButton;
    button->setObjectName(objectName);
    button->setText(text);
    button->setToolTip(toolTip);
    button->setStyleSheet(style);
    return button;
}

QAction* addMenuAction(QMenu* menu, const QString& objectName, const QString& text)
{
    QAction* action = menu->addAction(text);
    action->setObjectName(objectName);
    return action;
}

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
{
    setWindowTitle(QStringLiteral("Brindle (Beta)"));
    resize(1280, 800);
    setAnimated(false);

    buildToolbar();
    buildCentralArea();
    proposalReview = new ProposalReview(this);

    statusLabel = new QLabel(QStringLiteral("No data loaded. Click 'Load Data' to begin."));
    statusLabel->setObjectName(QStringLiteral("statusLabel"));
    // File names are shown as they are, never read as markup.
    statusLabel->setTextFormat(Qt::PlainText);
    statusBar()->addWidget(statusLabel, 0);
    statusNote = new NoteLabel;
    statusNote->setObjectName(QStringLiteral("statusNote"));
    statusNote->setTextFormat(Qt::PlainText);
    statusNote->setStyleSheet(QStringLiteral("color: #e8b04a;"));
    statusNote->setContentsMargins(24, 0, 4, 0);
    statusBar()->addWidget(statusNote, 1);

    labels = {LabelPalette::defaultLabel()};
    applyLabels();

    qApp->installEventFilter(this);
}

MainWindow::~MainWindow()
{
    qApp->removeEventFilter(this);
}

void MainWindow::showStatusNote(const QString& text)
{
    constexpr int kNoteMs = 30000;
    const auto show = [this] {
        statusNote->setText(statusNotes.join(QStringLiteral("   |   ")));
        statusNote->setToolTip(statusNotes.join(QLatin1Char('\n')));
    };
    statusNotes.prepend(text);
    show();
    QTimer::singleShot(kNoteMs, this, [this, text, show] {
        statusNotes.removeOne(text);
        show();
    });
}

void MainWindow::buildToolbar()
{
    QToolBar* toolbar = addToolBar(QStringLiteral("Main"));
    toolbar->setObjectName(QStringLiteral("mainToolBar"));
    toolbar->setContextMenuPolicy(Qt::PreventContextMenu);
    // The icon size first: setting it drops the toolbar's minimum height.
    toolbar->setIconSize(QSize(16, 16));
    toolbar->setFixedHeight(kToolBarHeight);
    toolbar->setMovable(false);
    // When the window is too narrow, the controls that do not fit go behind the overflow
    // button, which opens them in rows below the bar: the bar may grow while it is open.
    if (auto* overflow = toolbar->findChild<QToolButton*>(QStringLiteral("qt_toolbar_ext_button"))) {
        overflow->setToolTip(QStringLiteral("More commands"));
        overflow->installEventFilter(new OverflowButtonPainter(overflow));
        connect(overflow, &QToolButton::toggled, toolbar, [toolbar](bool open) {
            toolbar->setMaximumHeight(open ? QWIDGETSIZE_MAX : kToolBarHeight);
            // Closed after the window grew: lay the bar out again, so that the button
            // goes away when everything fits now.
            if (!open)
                QTimer::singleShot(0, toolbar, [toolbar] {
                    toolbar->layout()->invalidate();
                    toolbar->layout()->activate();
                });
        });
    }

    QToolButton* loadButton = makeToolButton(
        QStringLiteral("loadDataButton"), QStringLiteral("Load Data"),
        QStringLiteral("Select images folder and annotations folder"), Theme::menuButtonStyle());
    toolbar->addWidget(loadButton);
    connect(loadButton, &QToolButton::clicked, this, &MainWindow::onLoadData);

    QToolButton* reloadButton = makeToolButton(
        QStringLiteral("reloadButton"), QStringLiteral("\u21BA"),
        QStringLiteral("Reload current folders (re-scan images and annotations)"),
        Theme::reloadButtonStyle());
    toolbar->addWidget(reloadButton);
    connect(reloadButton, &QToolButton::clicked, this, &MainWindow::onReloadData);

    toolbar->addSeparator();
    toolbar->addSeparator();

    toolbar->addWidget(new QLabel(QStringLiteral(" Create: ")));
    createCombo = new QComboBox;
    createCombo->setObjectName(QStringLiteral("createCombo"));
    createCombo->setMinimumWidth(130);
    createCombo->setToolTip(QStringLiteral("Select annotation type to draw"));
    // Item index == ShapeType value.
    createCombo->addItems({QStringLiteral("  Bounding Box"), QStringLiteral("  Polygon"),
                           QStringLiteral("  Line"), QStringLiteral("  Keypoint"),
                           QStringLiteral("  Rotated Box"), QStringLiteral("  Cuboid"),
                           QStringLiteral("  Ellipse")});
    createCombo->setCurrentIndex(0);
    toolbar->addWidget(createCombo);
    connect(createCombo, &QComboBox::currentTextChanged, this, &MainWindow::onCreateComboChanged);

    toolbar->addSeparator();
    toolbar->addWidget(new QLabel(QStringLiteral(" Label: ")));
    classCombo = new QComboBox;
    classCombo->setObjectName(QStringLiteral("classCombo"));
    classCombo->setMinimumWidth(160);
    classCombo->setToolTip(QStringLiteral("Label for new bounding boxes"));
    // Datasets may hold 100,000s of labels: rows come from a model, all of one height.
    classCombo->setModel(new LabelListModel(classCombo));
    if (auto* view = qobject_cast<QListView*>(classCombo->view()))
        view->setUniformItemSizes(true);
    toolbar->addWidget(classCombo);
    connect(classCombo, &QComboBox::currentTextChanged, this, &MainWindow::onClassComboChanged);

    QToolButton* manageButton = makeToolButton(
        QStringLiteral("manageLabelsButton"), QStringLiteral("+/-"),
        QStringLiteral("Add / remove labels and assign colors"), Theme::smallButtonStyle());
    toolbar->addWidget(manageButton);
    connect(manageButton, &QToolButton::clicked, this, &MainWindow::onManageLabels);

    toolbar->addSeparator();
    auto* zoomGroup = new QWidget;
    zoomGroup->setObjectName(QStringLiteral("zoomGroup"));
    auto* zoomLayout = new QHBoxLayout(zoomGroup);
    zoomLayout->setContentsMargins(4, 0, 4, 0);
    zoomLayout->setSpacing(2);
    zoomLayout->addWidget(new QLabel(QStringLiteral("Zoom: ")));
    QToolButton* zoomInButton =
        makeZoomButton(QStringLiteral("+"), QStringLiteral("Zoom in  (+)"));
    zoomInButton->setObjectName(QStringLiteral("zoomInButton"));
    QToolButton* zoomOutButton =
        makeZoomButton(QStringLiteral("-"), QStringLiteral("Zoom out  (-)"));
    zoomOutButton->setObjectName(QStringLiteral("zoomOutButton"));
    QToolButton* fitButton =
        makeZoomButton(QStringLiteral("fit"), QStringLiteral("Fit image to window  (F)"));
    fitButton->setObjectName(QStringLiteral("zoomFitButton"));
    zoomLayout->addWidget(zoomInButton);
    zoomLayout->addWidget(zoomOutButton);
    zoomLayout->addWidget(fitButton);

    autoZoomButton = new QToolButton;
    autoZoomButton->setObjectName(QStringLiteral("autoZoomButton"));
    autoZoomButton->setCheckable(true);
    autoZoomButton->setChecked(false);
    autoZoomButton->setIcon(makeLockIcon(QColor(0xaa, 0xaa, 0xaa)));
    autoZoomButton->setIconSize(QSize(12, 12));
    autoZoomButton->setStyleSheet(Theme::lockButtonStyle());
    autoZoomButton->setToolTip(QStringLiteral(
        "Auto-zoom lock: when enabled, switching images automatically\n"
        "zooms in to show all annotations with a 50px border."));
    zoomLayout->addWidget(autoZoomButton);
    toolbar->addWidget(zoomGroup);
    // Polish first, or the style sheet's max-height would later replace the height set here.
    autoZoomButton->ensurePolished();
    const int fitHeight = fitButton->sizeHint().height();
    autoZoomButton->setMinimumHeight(fitHeight);
    autoZoomButton->setMaximumHeight(fitHeight);

    connect(zoomInButton, &QToolButton::clicked, this, [this] { canvas->zoomIn(); });
    connect(zoomOutButton, &QToolButton::clicked, this, [this] { canvas->zoomOut(); });
    connect(fitButton, &QToolButton::clicked, this, [this] { canvas->zoomFit(); });
    connect(autoZoomButton, &QToolButton::toggled, this, [this](bool checked) {
        autoZoomButton->setIcon(makeLockIcon(checked ? QColor(0xff, 0x44, 0x44)
                                                     : QColor(0xaa, 0xaa, 0xaa)));
    });
    connect(autoZoomButton, &QToolButton::clicked, this, &MainWindow::onToggleAutoZoom);

    toolbar->addSeparator();
    QAction* prevAction = toolbar->addAction(QStringLiteral("< Prev"));
    prevAction->setObjectName(QStringLiteral("prevAction"));
    prevAction->setToolTip(QStringLiteral("Previous image  (Left / A)"));
    QAction* nextAction = toolbar->addAction(QStringLiteral("Next >"));
    nextAction->setObjectName(QStringLiteral("nextAction"));
    nextAction->setToolTip(QStringLiteral("Next image  (Right / D)"));
    connect(prevAction, &QAction::triggered, this, &MainWindow::onPrevImage);
    connect(nextAction, &QAction::triggered, this, &MainWindow::onNextImage);

    toolbar->addSeparator();
    QToolButton* editButton = makeToolButton(
        QStringLiteral("editButton"), QStringLiteral("Edit"),
        QStringLiteral("Edit labels across the whole dataset"), Theme::menuButtonStyle());
    editButton->setPopupMode(QToolButton::InstantPopup);
    auto* editMenu = new QMenu(editButton);
    editMenu->setObjectName(QStringLiteral("editMenu"));
    QAction* renameAction =
        addMenuAction(editMenu, QStringLiteral("renameLabelAction"), QStringLiteral("Rename Label..."));
    QAction* removeAction =
        addMenuAction(editMenu, QStringLiteral("removeLabelAction"), QStringLiteral("Remove Label..."));
    editMenu->addSeparator();
    QAction* extractAction = addMenuAction(editMenu, QStringLiteral("extractVideoFramesAction"),
                                           QStringLiteral("Extract Video Frames..."));
    QAction* inferenceAction =
        addMenuAction(editMenu, QStringLiteral("yoloInferenceAction"),
                      QStringLiteral("AI Video Frame Extraction (YOLO)..."));
    QAction* annotateVideoAction = addMenuAction(
        editMenu, QStringLiteral("yoloAnnotateVideoAction"), QStringLiteral("Annotate Video with YOLO..."));
    QAction* prelabelAction = addMenuAction(editMenu, QStringLiteral("prelabelAction"),
                                            QStringLiteral("Pre-label with YOLO..."));
    editMenu->addSeparator();
    QAction* checkAction = addMenuAction(editMenu, QStringLiteral("checkDatasetAction"),
                                         QStringLiteral("Check Dataset..."));
    QAction* splitAction = addMenuAction(editMenu, QStringLiteral("exportSplitAction"),
                                         QStringLiteral("Split Dataset into Train/Test subsets..."));
    editMenu->addSeparator();
    QAction* toKeyPointsAction = addMenuAction(editMenu, QStringLiteral("bboxesToKeyPointsAction"),
                                               QStringLiteral("Convert BBoxes to Key Points"));
    QAction* toBBoxesAction = addMenuAction(editMenu, QStringLiteral("keyPointsToBBoxesAction"),
                                            QStringLiteral("Convert Key Points to BBoxes"));
    editButton->setMenu(editMenu);
    toolbar->addWidget(editButton);
    connect(renameAction, &QAction::triggered, this, &MainWindow::onRenameLabel);
    connect(removeAction, &QAction::triggered, this, &MainWindow::onRemoveLabel);
    connect(extractAction, &QAction::triggered, this, &MainWindow::onExtractVideoFrames);
    connect(inferenceAction, &QAction::triggered, this, &MainWindow::onYoloInference);
    connect(annotateVideoAction, &QAction::triggered, this, &MainWindow::onYoloAnnotateVideo);
    connect(prelabelAction, &QAction::triggered, this, &MainWindow::onPrelabel);
    connect(checkAction, &QAction::triggered, this, &MainWindow::onCheckDataset);
    connect(splitAction, &QAction::triggered, this, &MainWindow::onExportSplit);
    connect(toKeyPointsAction, &QAction::triggered, this, &MainWindow::onConvertBBoxesToKeyPoints);
    connect(toBBoxesAction, &QAction::triggered, this, &MainWindow::onConvertKeyPointsToBBoxes);

    toolbar->addSeparator();
    QToolButton* exportButton = makeToolButton(
        QStringLiteral("exportImportButton"), QStringLiteral("Export / Import"),
        QStringLiteral("Export or import annotations in various formats"), Theme::menuButtonStyle());
    exportButton->setPopupMode(QToolButton::InstantPopup);
    auto* exportMenu = new SectionMenu(exportButton);
    exportMenu->setObjectName(QStringLiteral("exportImportMenu"));
    exportMenu->addSection(QStringLiteral("YOLO"));
    QAction* exportYolo = addMenuAction(exportMenu, QStringLiteral("exportYoloAction"),
                                        QStringLiteral("Export YOLO labels text files"));
    QAction* exportYoloPose = addMenuAction(exportMenu, QStringLiteral("exportYoloPoseAction"),
                                            QStringLiteral("Export YOLO Pose labels..."));
    QAction* importYolo = addMenuAction(exportMenu, QStringLiteral("importYoloAction"),
                                        QStringLiteral("Import YOLO labels text files"));
    exportMenu->addSection(QStringLiteral("COCO"));
    QAction* exportCoco = addMenuAction(exportMenu, QStringLiteral("exportCocoAction"),
                                        QStringLiteral("Export COCO JSON file"));
    QAction* importCoco = addMenuAction(exportMenu, QStringLiteral("importCocoAction"),
                                        QStringLiteral("Import COCO JSON file"));
    exportMenu->addSection(QStringLiteral("DOTA"));
    QAction* exportDota = addMenuAction(exportMenu, QStringLiteral("exportDotaAction"),
                                        QStringLiteral("Export DOTA text files"));
    QAction* importDota = addMenuAction(exportMenu, QStringLiteral("importDotaAction"),
                                        QStringLiteral("Import DOTA text files"));
    exportMenu->addSection(QStringLiteral("CSV"));
    QAction* exportCsv =
        addMenuAction(exportMenu, QStringLiteral("exportCsvAction"), QStringLiteral("Export CSV file"));
    QAction* importCsv =
        addMenuAction(exportMenu, QStringLiteral("importCsvAction"), QStringLiteral("Import CSV file"));
    exportMenu->addSection(QStringLiteral("Other"));
    QAction* exportNames = addMenuAction(exportMenu, QStringLiteral("exportObjectNamesAction"),
                                         QStringLiteral("Export Classes/Labels text file"));
    QAction* importNames = addMenuAction(exportMenu, QStringLiteral("importObjectNamesAction"),
                                         QStringLiteral("Import Classes/Labels text file"));
    exportMenu->addSection(QStringLiteral("Training"));
    QAction* exportTraining = addMenuAction(exportMenu, QStringLiteral("exportForTrainingAction"),
                                            QStringLiteral("Export for Training..."));
    exportMenu->addSection(QStringLiteral("Collage"));
    QAction* exportCollage = addMenuAction(exportMenu, QStringLiteral("exportCollageAction"),
                                           QStringLiteral("Export Collage..."));
    exportButton->setMenu(exportMenu);
    toolbar->addWidget(exportButton);
    connect(exportYolo, &QAction::triggered, this, &MainWindow::onExportYolo);
    connect(exportYoloPose, &QAction::triggered, this, &MainWindow::onExportYoloPose);
    connect(importYolo, &QAction::triggered, this, &MainWindow::onImportYolo);
    connect(exportCoco, &QAction::triggered, this, &MainWindow::onExportCoco);
    connect(importCoco, &QAction::triggered, this, &MainWindow::onImportCoco);
    connect(exportDota, &QAction::triggered, this, &MainWindow::onExportDota);
    connect(importDota, &QAction::triggered, this, &MainWindow::onImportDota);
    connect(exportCsv, &QAction::triggered, this, &MainWindow::onExportCsv);
    connect(importCsv, &QAction::triggered, this, &MainWindow::onImportCsv);
    connect(exportNames, &QAction::triggered, this, &MainWindow::onExportObjectNames);
    connect(importNames, &QAction::triggered, this, &MainWindow::onImportObjectNames);
    connect(exportCollage, &QAction::triggered, this, &MainWindow::onExportCollage);
    connect(exportTraining, &QAction::triggered, this, &MainWindow::onExportForTraining);

    toolbar->addSeparator();
    QToolButton* helpButton = makeToolButton(
        QStringLiteral("helpButton"), QStringLiteral("Help"),
        QStringLiteral("Open Brindle tutorial and keyboard shortcuts"), Theme::helpButtonStyle());
    toolbar->addWidget(helpButton);
    connect(helpButton, &QToolButton::clicked, this, [this] { showHelpDialog(this); });
}

void MainWindow::buildCentralArea()
{
    auto* splitter = new QSplitter(Qt::Horizontal);
    splitter->setObjectName(QStringLiteral("mainSplitter"));
    setCentralWidget(splitter);

    auto* leftPane = new QWidget;
    leftPane->setObjectName(QStringLiteral("imagesPane"));
    auto* leftLayout = new QVBoxLayout(leftPane);
    leftLayout->setContentsMargins(6, 4, 0, 0);
    leftLayout->setSpacing(4);
    auto* imagesTitle = new QLabel(QStringLiteral("Images"));
    QFont titleFont = imagesTitle->font();
    titleFont.setWeight(QFont::Bold);
    imagesTitle->setFont(titleFont);
    leftLayout->addWidget(imagesTitle);
    imageList = new ImageListWidget;
    imageList->setObjectName(QStringLiteral("imageList"));
    imageList->setMinimumWidth(220);
    imageList->setAlternatingRowColors(true);
    leftLayout->addWidget(imageList);
    leftPane->setMinimumWidth(220);
    splitter->addWidget(leftPane);

    canvas = new ImageCanvas(splitter);
    canvas->setObjectName(QStringLiteral("canvas"));
    annotationsPanel = new AnnotationsPanel(splitter);
    annotationsPanel->setObjectName(QStringLiteral("annotationsPanel"));

    splitter->setStretchFactor(0, 0);
    splitter->setStretchFactor(1, 1);
    splitter->setStretchFactor(2, 0);

    connect(imageList, &QListWidget::currentRowChanged, this, &MainWindow::onImageRowChanged);
    connect(imageList->delegate, &ImageListDelegate::removeRequested, this,
            &MainWindow::onRemoveImageRequested);
    connect(canvas, &ImageCanvas::boxesChanged, this, &MainWindow::onCanvasBoxesChanged);
    connect(canvas, &ImageCanvas::selectionChanged, this, &MainWindow::onCanvasSelectionChanged);
    connect(canvas, &ImageCanvas::drawingCoords, this, &MainWindow::onDrawingCoords);
    connect(canvas, &ImageCanvas::aboutToChange, this, &MainWindow::pushUndo);
    connect(canvas, &ImageCanvas::changeCancelled, this, &MainWindow::onCanvasChangeCancelled);
    connect(annotationsPanel, &AnnotationsPanel::selectionRequested, this,
            &MainWindow::onAnnotationSelected);
    connect(annotationsPanel, &AnnotationsPanel::deleteRequested, this,
            &MainWindow::onAnnotationDeleteRequested);
    connect(annotationsPanel, &AnnotationsPanel::labelChangeRequested, this,
            &MainWindow::onLabelChangeRequested);
    connect(canvas, &ImageCanvas::labelChangeRequested, this, &MainWindow::onLabelChangeRequested);
}
