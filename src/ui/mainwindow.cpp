#include "ui/mainwindow.h"

#include "platform/messagebox.h"
#include "platform/programfiles.h"
#include "platform/serialports.h"
#include "platform/toolprocess.h"
#include "playback/soundservice.h"
#include "programming/cvlistfile.h"
#include "programming/programmingrun.h"
#include "project/projectcommands.h"
#include "soundset/eventview.h"
#include "soundset/soundconversion.h"
#include "soundset/soundtable.h"
#include "soundset/wavecheck.h"
#include "soundset/wavefolder.h"
#include "ui/aboutdialog.h"
#include "ui/backgroundwork.h"
#include "ui/conversiondialog.h"
#include "ui/levelmatchdialog.h"
#include "ui/qtmessagepresenter.h"
#include "ui/soundwait.h"
#include "ui/widgets.h"

#include <algorithm>
#include <QAction>
#include <QApplication>
#include <QButtonGroup>
#include <QComboBox>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileSystemWatcher>
#include <QFontMetrics>
#include <QGroupBox>
#include <QLabel>
#include <QLayout>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QRadioButton>
#include <QStorageInfo>
#include <QTextDocument>
#include <QTextEdit>
#include <QThread>
#include <QTimer>

namespace klangor {

using namespace Qt::Literals::StringLiterals;

namespace {

template <typename W> W *place(W *widget, const char *name, const QRect &geometry)
{
    widget->setObjectName(QString::fromLatin1(name));
    widget->setGeometry(geometry);
    return widget;
}

QGroupBox *frame(const char *name, const char *caption, QWidget *parent, const QRect &geometry)
{
    return place(new CaptionFrame(QString::fromUtf8(caption), parent), name, geometry);
}

const QString CvDieselMissingText = QStringLiteral("CV-Datei \"%1\" fehlt").arg(CvDieselFileName);

// Roots of the mounted file systems stand in for drive letters; pseudo file systems are left out.
QStringList driveRoots()
{
    QStringList roots;
    for (const QStorageInfo &volume : QStorageInfo::mountedVolumes()) {
        if (!volume.isValid() || !volume.isReady())
            continue;
        const QString root = volume.rootPath();
        static const QStringList hidden = {QStringLiteral("/proc"), QStringLiteral("/sys"),
                                           QStringLiteral("/dev"), QStringLiteral("/run"),
                                           QStringLiteral("/snap")};
        const bool isHidden = std::any_of(hidden.begin(), hidden.end(), [&](const QString &h) {
            return root == h || root.startsWith(h + QLatin1Char('/'));
        });
        if (!isHidden && !roots.contains(root))
            roots.append(root);
    }
    if (roots.isEmpty())
        roots.append(QDir::rootPath());
    std::sort(roots.begin(), roots.end());
    return roots;
}

// The drive that holds path: the longest root that contains it.
QString driveOf(const QString &path, const QStringList &roots)
{
    QString best = QDir::rootPath();
    for (const QString &root : roots) {
        const QString prefix = root.endsWith(QLatin1Char('/')) ? root : root + QLatin1Char('/');
        if ((path == root || path.startsWith(prefix)) && root.size() > best.size())
            best = root;
    }
    return best;
}

} // namespace

Form1::Form1(const WindowServices &services, QWidget *parent)
    : QMainWindow(parent), m_services(services)
{
    m_checker = std::make_unique<WaveChecker>(*m_services.waveDevice);
    m_assigner = std::make_unique<SlotAssigner>(m_services.programFolder, *m_checker);

    setObjectName(QStringLiteral("Form1"));
    setWindowTitle(QStringLiteral("Klangor"));
    // Fixed single border: can be minimized, not resized or maximized.
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                   Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                   Qt::WindowCloseButtonHint);
    createControls();
    createActions();
    createMenus();
    // Minimum and maximum size alike: the window manager offers no resize border and no
    // maximize button.
    layout()->setSizeConstraint(QLayout::SetFixedSize);
    connectControls();
    setupProgramming();
    setupProjects();
    Form_Load();
}

Form1::~Form1()
{
    // A header check of the file list still running reads no more and is let finish.
    for (QThread *thread : findChildren<QThread *>(Qt::FindDirectChildrenOnly)) {
        thread->requestInterruption();
        thread->wait();
    }
}

void Form1::createControls()
{
    auto *client = new QWidget(this);
    client->setFixedSize(ClientWidth, ClientHeight);
    // The layout is drawn for the classic 8-point dialog font. Liberation Sans (a dependency of
    // the package) has the widths for it, where the desktop's font would clip names.
    QFont small(WindowFontFamily);
    small.setPointSizeF(8);
    client->setFont(small);
    setCentralWidget(client);

    QGroupBox *frame2 = frame("Frame2", "Sounds", client, {8, 8, 177, 561});
    m_drive1 = place(new DriveListBox(driveRoots, frame2), "Drive1", {8, 16, 161, 21});
    m_dir1 = place(new FolderListBox(frame2), "Dir1", {8, 40, 161, 186});
    m_list1 = place(new WaveFileListBox(frame2), "List1", {8, 232, 161, 316});
    m_list1->setContextMenuPolicy(Qt::CustomContextMenu);
    // A sound another program saves into the browsed folder shows up without leaving it.
    m_folderWatcher = new QFileSystemWatcher(this);
    m_relistTimer = new QTimer(this);
    m_relistTimer->setSingleShot(true);
    m_relistTimer->setInterval(200);

    QGroupBox *frame4 = frame("Frame4", "Slots", client, {192, 8, 273, 337});
    for (int k = 1; k <= SlotRows; ++k) {
        const QString digit = QString::number(k);
        auto *slotFrame = new CaptionFrame(QStringLiteral("Slot ") + digit, frame4);
        slotFrame->setObjectName(QStringLiteral("SlotFrame") + digit);
        slotFrame->setGeometry(8, 16 + 56 * (k - 1), 257, 49);
        SlotRow &r = row(k);
        r.slot = place(new SlotBox(slotFrame), "", {8, 16, 137, 25});
        r.test = place(new QPushButton(QStringLiteral("Loop"), slotFrame), "", {144, 16, 41, 25});
        r.loeschen = place(new QPushButton(u"Löschen"_s, slotFrame), "", {192, 16, 57, 25});
        r.slot->setObjectName(QStringLiteral("Slot") + digit);
        r.test->setObjectName(QStringLiteral("Test") + digit);
        r.loeschen->setObjectName(QStringLiteral("Command%1").arg(k * 10));
    }
    m_command2 =
        place(new QPushButton(u"Soundgruppe abspielen"_s, frame4), "Command2", {8, 296, 257, 33});

    place(new LogoPicture(LogoPicture::Motif::Waveform, client), "Picture2", {192, 352, 177, 65});
    m_command1 =
        place(new QPushButton(u"Sound programmieren"_s, client), "Command1", {192, 424, 177, 33});
    m_abbrechen = place(new QPushButton(u"Abbrechen"_s, client), "Abbrechen", {192, 464, 177, 33});

    m_label2 = place(new QLabel(client), "Label2", {200, 512, 393, 33});
    m_label2->setTextFormat(Qt::PlainText);
    // 18 points where every status text fits; a wider system font gets a smaller size.
    QFont statusFont = m_label2->font();
    statusFont.setBold(true);
    const QStringList statusTexts = ProgrammingRun::statusTexts() << CvDieselMissingText;
    for (qreal points = 18; points >= 8; points -= 0.5) {
        statusFont.setPointSizeF(points);
        const QFontMetrics metrics(statusFont);
        if (std::all_of(statusTexts.begin(), statusTexts.end(), [&](const QString &text) {
                return metrics.horizontalAdvance(text) <= m_label2->width();
            }))
            break;
    }
    m_label2->setFont(statusFont);
    QPalette red = m_label2->palette();
    red.setColor(QPalette::WindowText, Qt::red);
    m_label2->setPalette(red);

    m_progressBar1 = place(new QProgressBar(client), "ProgressBar1", {192, 552, 409, 17});
    m_progressBar1->setRange(0, 100);
    m_progressBar1->setValue(0);
    m_progressBar1->setTextVisible(false);
    m_progressBar1->hide();
    m_timer1 = new QTimer(this);
    m_timer1->setObjectName(QStringLiteral("Timer1"));
    m_timer1->setInterval(100);

    QGroupBox *frame8 = frame("Frame8", "Qualität", client, {384, 376, 89, 121});
    m_memory16MBit = place(new QRadioButton(u"16 MBit"_s, frame8), "Option1", {16, 24, 65, 17});
    m_memory2MBit = place(new QRadioButton(u"2 MBit"_s, frame8), "Option2", {16, 48, 65, 17});

    // The port options lie on the window itself, drawn over their frame.
    frame("Frame7", "Serielle Schnittstelle", client, {480, 376, 113, 121});
    auto *ports = new QButtonGroup(this);
    for (int port = 1; port <= static_cast<int>(m_comPorts.size()); ++port) {
        auto *com = place(new QRadioButton(QStringLiteral("Com%1").arg(port), client), "",
                          {496, 400 + 24 * (port - 1), 49, 17});
        com->setObjectName(QStringLiteral("Option%1").arg(port + 2));
        com->raise();
        ports->addButton(com, port);
        com->setContextMenuPolicy(Qt::CustomContextMenu);
        com->installEventFilter(this); // the tooltip tells where the port leads now
        m_comPorts[static_cast<std::size_t>(port - 1)] = com;
    }

    QGroupBox *frame3 = frame("Frame3", "Sound Definition", client, {472, 8, 313, 65});
    m_label1 = place(new QLabel(frame3), "Label1", {8, 24, 297, 33});
    m_label1->setTextFormat(Qt::PlainText);
    m_label1->setWordWrap(true);
    QFont eventFont = m_label1->font();
    eventFont.setBold(true);
    eventFont.setPointSizeF(9.75);
    m_label1->setFont(eventFont);
    QPalette title = m_label1->palette();
    title.setColor(QPalette::WindowText, title.color(QPalette::Active, QPalette::Highlight));
    m_label1->setPalette(title);

    m_list3 = place(new QListWidget(client), "List3", {472, 80, 313, 277});
    m_list3->addItems(SoundTable::texts());
    // The longest event names need the narrow cut of the font to show whole.
    QFont narrow(NarrowFontFamily);
    narrow.setPointSizeF(8);
    m_list3->setFont(narrow);
    m_list3->setSelectionMode(QAbstractItemView::SingleSelection);
    // The slot rows act on the selected event: a Ctrl+click must not leave none selected.
    connect(m_list3, &QListWidget::itemSelectionChanged, this, [this] {
        if (m_list3->selectedItems().isEmpty() && m_list3->currentItem())
            m_list3->currentItem()->setSelected(true);
    });

    place(new LogoPicture(LogoPicture::Motif::Locomotive, client), "Picture1", {608, 360, 177, 65});

    QGroupBox *frame6 = frame("Frame6", "CV Daten", client, {608, 432, 177, 137});
    m_cvDiesel = place(new QRadioButton(u"Diesel- /E-Lok"_s, frame6), "Option7", {16, 24, 137, 17});
    m_cvSteam = place(new QRadioButton(u"Dampf-Lok"_s, frame6), "Option8", {16, 48, 129, 17});
    m_cvSelectrix = place(new QRadioButton(u"Selectrix"_s, frame6), "Selectrix", {16, 72, 81, 17});
    m_command3 =
        place(new QPushButton(u"CV Standardwert laden"_s, client), "Command3", {616, 528, 161, 33});
    m_command3->raise();

    QGroupBox *frame5 = frame("Frame5", "Speicherbelegung", client, {792, 8, 105, 561});
    m_cv = place(new QTextEdit(frame5), "CV", {8, 16, 89, 537});
    m_cv->setAcceptRichText(false);
    m_cv->setLineWrapMode(QTextEdit::NoWrap);

    // A caption must never be clipped: an option grows to the right when its font needs it.
    for (QRadioButton *option : client->findChildren<QRadioButton *>())
        option->resize(std::max(option->width(), option->sizeHint().width()), option->height());

    m_memory16MBit->setChecked(true);
    m_comPorts[0]->setChecked(true);
    m_cvDiesel->setChecked(true);
}

void Form1::createActions()
{
    const auto action = [this](const char *name, const char *caption) {
        auto *a = new QAction(QString::fromUtf8(caption), this);
        a->setObjectName(QString::fromLatin1(name));
        return a;
    };
    m_offnen = action("Offnen", "Öff&nen");
    m_speichern = action("Speichern", "&Speichern");
    m_speichernunter = action("Speichernunter", "Speicher unter...");
    m_angleichen = action("Angleichen", "Lautstärke der Sounds angleichen...");
    m_ende = action("Ende", "&Ende");
    m_info = action("Info", "&Info");
    m_umwandeln = action("Umwandeln", "Für den Decoder umwandeln...");
}

void Form1::createMenus()
{
    QMenu *datei = menuBar()->addMenu(u"&Datei"_s);
    datei->setObjectName(QStringLiteral("Datei"));
    datei->addAction(m_offnen);
    datei->addAction(m_speichern);
    datei->addAction(m_speichernunter);
    datei->addSeparator();
    datei->addAction(m_angleichen);
    datei->addSeparator();
    datei->addAction(m_ende);
    // "&Info" is a command of its own on the menu bar.
    menuBar()->addAction(m_info);

    m_list1Menu = new QMenu(this);
    m_list1Menu->setObjectName(QStringLiteral("List1Menu"));
    m_list1Menu->addAction(m_umwandeln);

    m_comMenu = new QMenu(this);
    m_comMenu->setObjectName(QStringLiteral("ComMenu"));
}

void Form1::connectControls()
{
    connect(m_drive1, &QComboBox::activated, this, &Form1::Drive1_Change);
    connect(m_dir1, &FolderListBox::pathChanged, this, &Form1::Dir1_Change);
    connect(m_list1, &QListWidget::itemDoubleClicked, this, &Form1::List1_DblClick);
    connect(m_list1, &QWidget::customContextMenuRequested, this, &Form1::List1_ContextMenu);
    connect(m_folderWatcher, &QFileSystemWatcher::directoryChanged, m_relistTimer,
            qOverload<>(&QTimer::start));
    connect(m_relistTimer, &QTimer::timeout, this, &Form1::relistBrowseFolder);
    connect(m_umwandeln, &QAction::triggered, this, &Form1::Umwandeln_Click);
    connect(m_list3, &QListWidget::currentRowChanged, this, &Form1::List3_Click);
    for (int k = 1; k <= SlotRows; ++k) {
        const SlotRow &r = row(k);
        connect(r.slot, &SlotBox::doubleClicked, this, [this, k] { Slot_DblClick(k); });
        connect(r.slot, &SlotBox::dropped, this,
                [this, k](const DropPayload &payload) { Slot_OLEDragDrop(k, payload); });
        connect(r.loeschen, &QPushButton::clicked, this, [this, k] { Loeschen_Click(k); });
        connect(r.test, &QPushButton::clicked, this, [this, k] { Test_Click(k); });
    }
    connect(m_command2, &QPushButton::clicked, this, &Form1::Command2_Click);
    connect(m_command1, &QPushButton::clicked, this, &Form1::Command1_Click);
    connect(m_abbrechen, &QPushButton::clicked, this, &Form1::Abbrechen_Click);
    connect(m_timer1, &QTimer::timeout, this, &Form1::Timer1_Timer);
    connect(m_memory16MBit, &QRadioButton::clicked, this, &Form1::Option1_Click);
    connect(m_memory2MBit, &QRadioButton::clicked, this, &Form1::Option2_Click);
    for (int port = 1; port <= static_cast<int>(m_comPorts.size()); ++port) {
        QRadioButton *com = m_comPorts[static_cast<std::size_t>(port - 1)];
        connect(com, &QRadioButton::clicked, this, [this, port] { ComPort_Click(port); });
        connect(com, &QWidget::customContextMenuRequested, this,
                [this, port](const QPoint &position) { ComPort_ContextMenu(port, position); });
    }
    connect(m_cvDiesel, &QRadioButton::clicked, this, &Form1::Option7_Click);
    connect(m_cvSteam, &QRadioButton::clicked, this, &Form1::Option8_Click);
    connect(m_cvSelectrix, &QRadioButton::clicked, this, &Form1::Selectrix_Click);
    connect(m_command3, &QPushButton::clicked, this, &Form1::Command3_Click);
    connect(m_offnen, &QAction::triggered, this, &Form1::Offnen_Click);
    connect(m_speichern, &QAction::triggered, this, &Form1::Speichern_Click);
    connect(m_speichernunter, &QAction::triggered, this, &Form1::Speichernunter_Click);
    connect(m_angleichen, &QAction::triggered, this, &Form1::Angleichen_Click);
    connect(m_ende, &QAction::triggered, this, &Form1::Ende_Click);
    connect(m_info, &QAction::triggered, this, &Form1::Info_Click);
}

QString Form1::programFile(const QString &name) const
{
    return QDir(m_services.programFolder).filePath(name);
}

void Form1::setMousePointer(MousePointer pointer)
{
    switch (pointer) {
    case MousePointer::Idle:
        unsetCursor();
        break;
    case MousePointer::Busy:
        setCursor(Qt::WaitCursor);
        break;
    case MousePointer::Playing:
        setCursor(Qt::BusyCursor);
        break;
    }
}

void Form1::Form_Load()
{
    const QStringList roots = m_drive1->refresh();
    const QString start =
        m_services.startFolder.isEmpty() ? QDir::currentPath() : m_services.startFolder;
    m_drive1->setCurrentText(driveOf(QFileInfo(start).absoluteFilePath(), roots));
    if (!m_dir1->setPath(start))
        m_dir1->setPath(QDir::rootPath());
    Dir1_Change();

    m_list3->setCurrentRow(0);
    List3_Click(); // the selection signal does not fire when row 0 was already current

    if (!loadCvBox(programFile(CvDieselFileName)))
        m_label2->setText(CvDieselMissingText); // at start-up the status line says it, no box
    m_slotFileNames.clear();
    m_comPort = 1;
    m_memoryMBit = 16;
    m_cvDefaultFile = CvDieselFileName;
    m_projectPath.clear();
}

void Form1::Drive1_Change()
{
    // A drive that cannot be read leaves the folder list as it was.
    m_dir1->setPath(m_drive1->currentText());
    m_drive1->refresh();
}

void Form1::Dir1_Change()
{
    m_list1->clear();
    if (!m_browseFolder.isEmpty())
        m_folderWatcher->removePath(m_browseFolder);
    m_browseFolder = m_dir1->path();
    m_folderWatcher->addPath(m_browseFolder);
    relistBrowseFolder();
}

void Form1::relistBrowseFolder()
{
    bool cut = false;
    const QList<SoundFileEntry> entries =
        listSoundFiles(m_browseFolder, &cut).value_or(QList<SoundFileEntry>());
    m_list1->setEntries(entries);
    if (cut) {
        auto *more = new QListWidgetItem(u"… nicht alle: Der Ordner hat mehr als %1 Dateien."_s.arg(
                                             QLocale().toString(MaxScannedEntries)),
                                         m_list1);
        more->setFlags(Qt::NoItemFlags);
    }

    // A WAV file the check would refuse is set apart too, with the reason and the way to the
    // conversion; its header is read off the window's thread (the folder may be a slow stick).
    QStringList waves;
    for (const SoundFileEntry &entry : entries) {
        if (!entry.needsConversion)
            waves.append(entry.name);
    }
    const int listing = ++m_listing;
    for (QThread *older : findChildren<QThread *>(Qt::FindDirectChildrenOnly))
        older->requestInterruption(); // its answer would be dropped
    if (waves.isEmpty())
        return;
    auto reasons = std::make_shared<QMap<QString, QString>>();
    QThread *thread = QThread::create([folder = m_browseFolder, waves, reasons] {
        for (const QString &name : waves) {
            if (QThread::currentThread()->isInterruptionRequested())
                return;
            const Status fits = judgeWaveHeader(readWaveHeader(pathInFolder(folder, name)), {});
            if (!fits)
                reasons->insert(name, fits.error().text);
        }
    });
    thread->setParent(this);
    connect(thread, &QThread::finished, this, [this, thread, reasons, listing] {
        if (listing == m_listing)
            m_list1->markUnfit(*reasons);
        thread->deleteLater();
    });
    thread->start();
}

void Form1::List3_Click()
{
    const int event = m_list3->currentRow();
    if (!SoundTable::isValidEvent(event))
        return;
    const EventView view = eventViewFor(event, m_slotFileNames);
    m_label1->setText(view.caption);
    for (int k = 1; k <= SlotRows; ++k) {
        const SlotRowView &shown = view.rows[static_cast<std::size_t>(k - 1)];
        SlotRow &r = row(k);
        r.slot->setEnabled(shown.enabled);
        r.test->setEnabled(shown.enabled);
        r.loeschen->setEnabled(shown.enabled);
        r.slot->setText(shown.text);
    }
}

void Form1::assignToSlot(int k, const QString &slotText, const QString &sourcePath, AssignWay way)
{
    const std::optional<int> slotNumber = SoundTable::soundNumber(m_list3->currentRow(), k);
    if (!slotNumber)
        return;
    const int number = *slotNumber;
    SlotBox *box = row(k).slot;
    const QString previous = box->text();
    box->setText(slotText); // stays visible while the check runs
    box->repaint();
    Status taken = m_assigner->prepare(number, sourcePath, way);
    if (taken) {
        // On the double-click way pending events run once between the check and the copy.
        if (way == AssignWay::DoubleClick)
            QCoreApplication::processEvents();
        taken = m_assigner->take(m_slotFileNames, number, slotText, sourcePath);
    }
    if (!taken) {
        m_services.messages->show(taken.error()); // the new name shows until the box is closed
        box->setText(previous);
    }
}

void Form1::Slot_DblClick(int k)
{
    const QString entry = m_list1->selectedEntry();
    if (entry.isEmpty())
        return;
    if (needsConversion(entry))
        convertAndAssign(k, pathInFolder(m_browseFolder, entry), AssignWay::DoubleClick);
    else
        assignToSlot(k, entry, pathInFolder(m_browseFolder, entry), AssignWay::DoubleClick);
}

// Another sound file becomes a decoder WAV first; the slot takes that as a dropped file, by its
// bare name when it lies in the browsed folder.
void Form1::convertAndAssign(int k, const QString &source, AssignWay way)
{
    const std::optional<QString> converted = convertInWindow(source, QFileInfo(source).fileName());
    if (!converted)
        return;
    relistBrowseFolder();
    const QFileInfo output(*converted);
    const bool beside = output.absolutePath() == m_browseFolder;
    assignToSlot(k, beside ? output.fileName() : *converted, *converted, way);
}

// Conversion for the decoder: the user's explicit step; the check and assignment stay as they are.

void Form1::List1_ContextMenu(const QPoint &position)
{
    if (QListWidgetItem *item = m_list1->itemAt(position))
        m_list1->setCurrentItem(item);
    m_umwandeln->setEnabled(!m_list1->selectedEntry().isEmpty());
    m_list1Menu->popup(m_list1->viewport()->mapToGlobal(position));
}

void Form1::Umwandeln_Click()
{
    const QString entry = m_list1->selectedEntry();
    if (entry.isEmpty())
        return;
    if (const std::optional<QString> converted =
            convertInWindow(pathInFolder(m_browseFolder, entry), entry))
        showConvertedFile(*converted);
}

std::optional<QString> Form1::convertInWindow(const QString &source, const QString &entry)
{
    const QString title = u"Für den Decoder umwandeln"_s;
    // Where the output goes is found by writing a probe there: on a slow stick that is work too.
    struct Measured
    {
        Result<SoundLevels> levels;
        QString folder;
    };
    const std::optional<Measured> measured = runWithProgress<Measured>(
        this, title, u"„%1“ wird gemessen..."_s.arg(entry),
        [source, programFolder = m_services.programFolder](const ConversionProgress &progress) {
            return Measured{measureSoundLevels(source, progress),
                            conversionFolder(source, programFolder)};
        });
    if (!measured)
        return std::nullopt;
    if (!measured->levels) {
        m_services.messages->show(measured->levels.error());
        return std::nullopt;
    }
    ConversionDialog dialog(entry, measured->levels.value(), this);
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    ConversionOptions options = dialog.options();

    // Nothing of the user's is replaced unasked.
    const QString &folder = measured->folder;
    QString output = QDir(folder).filePath(convertedFileName(source));
    if (const QFileInfo existing(output); existing.exists() || existing.isSymLink()) {
        const QString newName = freeFileName(folder, existing.fileName());
        switch (askAboutExistingFile(this, output, newName)) {
        case ExistingFileChoice::Replace:
            options.overwrite = true;
            break;
        case ExistingFileChoice::NewName:
            output = QDir(folder).filePath(newName);
            break;
        case ExistingFileChoice::Cancel:
            return std::nullopt;
        }
    }
    setMousePointer(MousePointer::Busy);
    const std::optional<Result<ConvertedSound>> converted = runWithProgress<Result<ConvertedSound>>(
        this, title, u"„%1“ wird umgewandelt..."_s.arg(entry),
        [source, output, options](const ConversionProgress &progress) {
            return convertForDecoderTo(source, output, options, progress);
        });
    setMousePointer(MousePointer::Idle);
    if (!converted)
        return std::nullopt;
    if (!*converted) {
        m_services.messages->show(converted->error());
        return std::nullopt;
    }
    // What the conversion had to do beyond the plain task is never dropped.
    if (const QStringList &notes = converted->value().notes; !notes.isEmpty())
        m_services.messages->show({notes.join(u'\n'), title, MessageIcon::None});
    return converted->value().path;
}

// The file list shows the converted file's folder with the file selected, ready for a slot.
void Form1::showConvertedFile(const QString &path)
{
    const QFileInfo file(path);
    if (file.absolutePath() != m_browseFolder)
        m_dir1->setPath(file.absolutePath());
    Dir1_Change();
    m_list1->setCurrentItem(m_list1->findItems(file.fileName(), Qt::MatchExactly).value(0));
}

void Form1::Slot_OLEDragDrop(int k, const DropPayload &payload)
{
    std::optional<DropChoice> choice = chooseDrop(payload, m_browseFolder);
    if (!choice && !payload.files.isEmpty() && needsConversion(payload.files.first()))
        choice = DropChoice{payload.files.first(), payload.files.first()};
    if (!choice)
        return;
    if (!needsConversion(choice->sourcePath)) {
        assignToSlot(k, choice->slotText, choice->sourcePath, AssignWay::Drop);
        return;
    }
    // The conversion's dialogs wait until the drop has ended: its source waits for the answer.
    QTimer::singleShot(0, this, [this, k, source = choice->sourcePath] {
        convertAndAssign(k, source, AssignWay::Drop);
    });
}

void Form1::Option1_Click()
{
    m_memoryMBit = 16;
}

void Form1::Option2_Click()
{
    m_memoryMBit = 2;
}

void Form1::ComPort_Click(int port)
{
    m_comPort = port;
}

// The adapters present, for one port: "Automatisch" takes the only one there is.
void Form1::ComPort_ContextMenu(int port, const QPoint &position)
{
    QString &chosen = m_portDevices[static_cast<std::size_t>(port - 1)];
    m_comMenu->clear();
    const auto offer = [&](const QString &caption, const QString &name) {
        QAction *action = m_comMenu->addAction(caption);
        action->setCheckable(true);
        action->setChecked(chosen == name);
        connect(action, &QAction::triggered, this,
                [this, port, name] { m_portDevices[static_cast<std::size_t>(port - 1)] = name; });
    };
    offer(u"Automatisch (der einzige Adapter)"_s, QString());
    bool chosenPresent = chosen.isEmpty();
    for (const SerialDevice &device : listSerialDevices(m_services.deviceRoot)) {
        offer(QStringLiteral("%1 (%2)").arg(device.name, device.target), device.name);
        chosenPresent = chosenPresent || device.name == chosen;
    }
    if (!chosenPresent)
        offer(u"%1 (nicht angeschlossen)"_s.arg(chosen), chosen);
    QWidget *button = m_comPorts[static_cast<std::size_t>(port - 1)];
    m_comMenu->popup(button->mapToGlobal(position));
}

QString Form1::portToolTip(int port) const
{
    const Result<SerialDevice> device =
        deviceForPort(listSerialDevices(m_services.deviceRoot), port,
                      m_portDevices[static_cast<std::size_t>(port - 1)]);
    const QString lead =
        device ? u"Com%1 → %2 (%3)"_s.arg(port).arg(device.value().name, device.value().target)
               : device.error().text;
    return lead + u"\nRechtsklick: Adapter wählen"_s;
}

bool Form1::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::ToolTip) {
        for (int port = 1; port <= static_cast<int>(m_comPorts.size()); ++port) {
            if (watched == m_comPorts[static_cast<std::size_t>(port - 1)])
                m_comPorts[static_cast<std::size_t>(port - 1)]->setToolTip(
                    plainToolTip(portToolTip(port)));
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

void Form1::Option7_Click()
{
    m_cvDefaultFile = CvDieselFileName;
    m_list3->setEnabled(true);
    List3_Click();
}

void Form1::Option8_Click()
{
    m_cvDefaultFile = CvSteamFileName;
    m_list3->setEnabled(true);
    List3_Click();
}

void Form1::Selectrix_Click()
{
    m_list3->setEnabled(false);
    for (SlotRow &r : m_rows) {
        r.slot->setEnabled(false);
        r.test->setEnabled(false);
    }
    for (SlotRow &r : m_rows)
        r.loeschen->setEnabled(false);
    m_cvDefaultFile = CvSelectrixFileName;
}

void Form1::Command3_Click()
{
    if (const Status loaded = loadCvBox(programFile(m_cvDefaultFile)); !loaded)
        m_services.messages->show({loaded.error().text, u"CV Standardwert laden"_s});
}

Status Form1::loadCvBox(const QString &path)
{
    const Result<QString> text = loadCvText(path);
    if (!text)
        return text.error(); // the box keeps its previous text
    m_cv->setPlainText(text.value());
    return {};
}

void Form1::Ende_Click()
{
    // Ends at once: nothing is saved or asked.
    QApplication::closeAllWindows();
    QApplication::quit();
}

// Listening: the Loop buttons, the group playback and the file browser's double-click.

namespace {
const QString LoopCaption = QStringLiteral("Loop");
const QString StopCaption = QStringLiteral("Stop");
} // namespace

void Form1::List1_DblClick()
{
    const QString entry = m_list1->selectedEntry();
    if (entry.isEmpty())
        return;
    m_services.sound->PlaySoundOnce(pathInFolder(m_browseFolder, entry));
}

void Form1::ResetLoopButtons()
{
    for (SlotRow &r : m_rows)
        r.test->setText(LoopCaption);
}

void Form1::stopLoop(int k)
{
    m_services.sound->StopSound();
    row(k).test->setText(LoopCaption);
    setMousePointer(MousePointer::Idle);
}

void Form1::Test_Click(int k)
{
    SlotRow &r = row(k);
    if (r.slot->text().isEmpty())
        return;
    if (r.test->text() == StopCaption) {
        stopLoop(k);
        return;
    }
    setMousePointer(MousePointer::Playing);
    ResetLoopButtons();
    r.test->setText(StopCaption);
    if (const std::optional<int> number = SoundTable::soundNumber(m_list3->currentRow(), k))
        m_services.sound->PlaySoundLoop(programFile(workingFileName(*number)));
}

void Form1::Command2_Click()
{
    setMousePointer(MousePointer::Playing);
    const int event = m_list3->currentRow();
    for (int k = 1; k <= SoundTable::slotCount(event); ++k) { // none with no event selected
        const int n = SoundTable::soundNumber(event, k).value();
        if (m_slotFileNames.isAssigned(n))
            m_services.sound->PlaySoundWait(workingFileName(n));
    }
    waitUntilSoundsHeard(*m_services.sound);
    setMousePointer(MousePointer::Idle);
}

// "Löschen": the slot loses its sound; the working file stays on disk.
void Form1::Loeschen_Click(int k)
{
    if (row(k).test->text() == StopCaption)
        stopLoop(k);
    if (const std::optional<int> number = SoundTable::soundNumber(m_list3->currentRow(), k))
        m_slotFileNames.set(*number, QString());
    row(k).slot->setText(QString());
}

// Decoder programming: the run holds the state, the window shows it, Timer1 drives the ticks.

void Form1::setupProgramming()
{
    m_run = std::make_unique<ProgrammingRun>(m_services.programFolder, m_services.makeToolProcess);
    connect(m_run.get(), &ProgrammingRun::statusTextChanged, this, [this](const QString &text) {
        m_label2->setText(text);
        m_label2->repaint(); // visible before the wait begins
    });
    connect(m_run.get(), &ProgrammingRun::progressValueChanged, m_progressBar1,
            &QProgressBar::setValue);
    connect(m_run.get(), &ProgrammingRun::progressVisibleChanged, m_progressBar1,
            &QProgressBar::setVisible);
    connect(m_run.get(), &ProgrammingRun::timerActiveChanged, this, [this](bool active) {
        if (active)
            m_timer1->start();
        else
            m_timer1->stop();
    });
    // Only a port that cannot be reached needs more words than the status line holds.
    connect(m_run.get(), &ProgrammingRun::finished, this, [this](ProgrammingRun::Outcome outcome) {
        if (outcome == ProgrammingRun::Outcome::PortUnavailable && m_services.messages)
            m_services.messages->show(
                {m_run->message(), u"Sound programmieren"_s, MessageIcon::Critical});
    });
}

// The run has started when this returns; the status line, the bar and Timer1 show it until
// it ends. A click during a run is ignored.
void Form1::Command1_Click()
{
    // The options are read when the tool starts, after the sound list has been written.
    m_run->start(m_slotFileNames, m_memoryMBit, [this] {
        ToolCommand command = toolCommand(m_cvSelectrix->isChecked(), m_comPort);
        command.port.device = m_portDevices[static_cast<std::size_t>(m_comPort - 1)];
        return command;
    });
}

void Form1::Abbrechen_Click()
{
    m_run->cancel();
}

void Form1::Timer1_Timer()
{
    m_run->tick();
}

// Sound projects and the about box.

namespace {
// The box's text as the file keeps it: toPlainText() would turn no-break spaces into spaces.
QString cvBoxText(const QTextEdit &box)
{
    QString text = box.document()->toRawText();
    for (QChar &c : text) {
        // Paragraph, line and frame borders, as toPlainText() ends lines.
        if (c == QChar::ParagraphSeparator || c == QChar::LineSeparator || c == u'\uFDD0' ||
            c == u'\uFDD1')
            c = u'\n';
    }
    return text;
}
} // namespace

// The window as the project commands see it.
class ProjectHostAdapter final : public ProjectHost
{
public:
    explicit ProjectHostAdapter(Form1 &window) : m_window(window) {}

    QString programFolder() const override { return m_window.programFolder(); }
    const SlotFileNames &slotFileNames() const override { return m_window.slotFileNames(); }
    void setSlotFileNames(const SlotFileNames &names) override { m_window.m_slotFileNames = names; }
    QString projectPath() const override { return m_window.m_projectPath; }
    void setProjectPath(const QString &path) override { m_window.m_projectPath = path; }
    QString cvText() const override { return cvBoxText(*m_window.m_cv); }
    void setCvText(const QString &text) override { m_window.m_cv->setPlainText(text); }
    void refreshEventView() override { m_window.List3_Click(); }
    void setMousePointer(MousePointer pointer) override { m_window.setMousePointer(pointer); }
    void showMessage(const UserMessage &message) override
    {
        if (m_window.m_services.messages)
            m_window.m_services.messages->show(message);
    }
    void runLongWork(const QString &text,
                     const std::function<void(const ConversionProgress &)> &work) override
    {
        // The window answers meanwhile, but takes no clicks: a second open or save would
        // write into the same folder. The progress dialog is a window of its own.
        m_window.centralWidget()->setEnabled(false);
        m_window.menuBar()->setEnabled(false);
        runWithProgress(&m_window, QStringLiteral("Sound Projekt"), text, work);
        m_window.menuBar()->setEnabled(true);
        m_window.centralWidget()->setEnabled(true);
    }

private:
    Form1 &m_window;
};

void Form1::setupProjects()
{
    m_projects = std::make_unique<ProjectCommands>(std::make_unique<ProjectHostAdapter>(*this),
                                                   *m_services.dialogs);
}

void Form1::Offnen_Click()
{
    m_projects->open();
}

void Form1::openProject(const QString &projectPath)
{
    m_projects->openFile(projectPath);
}

void Form1::Speichern_Click()
{
    m_projects->save();
}

void Form1::Speichernunter_Click()
{
    m_projects->saveAs();
}

// Brings the assigned sounds to one loudness in their working files; the project file keeps the
// old ones until it is saved.
void Form1::Angleichen_Click()
{
    const QString title = u"Lautstärke der Sounds angleichen"_s;
    const std::optional<Result<LevelMatchPlan>> plan = runWithProgress<Result<LevelMatchPlan>>(
        this, title, u"Die Sounds werden gemessen..."_s,
        [folder = m_services.programFolder, names = m_slotFileNames](const ConversionProgress &p) {
            return planLevelMatch(folder, names, std::nullopt, p);
        });
    if (!plan)
        return;
    if (!*plan) {
        m_services.messages->show(plan->error());
        return;
    }
    if (plan->value().sounds.isEmpty()) {
        m_services.messages->show(
            {u"Es ist noch kein Sound zugewiesen."_s, title, MessageIcon::None});
        return;
    }
    LevelMatchDialog dialog(plan->value(), m_services.programFolder, *m_services.sound,
                            *m_services.messages, this);
    const int answer = dialog.exec();
    m_services.sound->StopSound(); // a preview, or a loop of a file about to change
    ResetLoopButtons();
    setMousePointer(MousePointer::Idle);
    if (answer != QDialog::Accepted)
        return;
    const std::optional<Status> applied = runWithProgress<Status>(
        this, title, u"Die Sounds werden angeglichen..."_s,
        [folder = m_services.programFolder, matched = dialog.plan()](const ConversionProgress &p) {
            return applyLevelMatch(folder, matched, p);
        });
    if (applied && !*applied)
        m_services.messages->show(applied->error());
}

void Form1::Info_Click()
{
    // One box at a time: a second click brings the open box to the front.
    if (!m_about) {
        m_about = new frmAbout(m_services.launcher, m_services.messages, this);
        m_about->setAttribute(Qt::WA_DeleteOnClose);
        // Not QObject::destroyed: that also fires while the window itself is being torn down.
        connect(m_about, &frmAbout::unloaded, this, [this] { m_about = nullptr; });
    }
    m_about->show();
    m_about->raise();
    m_about->activateWindow();
}

} // namespace klangor
