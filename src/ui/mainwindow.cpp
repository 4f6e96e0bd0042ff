#include "ui/mainwindow.h"

#include "platform/messagebox.h"
#include "programming/cvlistfile.h"
#include "programming/programmingrun.h"
#include "project/projectcommands.h"
#include "soundset/eventview.h"
#include "soundset/soundtable.h"
#include "soundset/wavecheck.h"
#include "soundset/wavefolder.h"
#include "ui/aboutdialog.h"
#include "ui/widgets.h"

#include <QAction>
#include <QApplication>
#include <QButtonGroup>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QMenuBar>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QStorageInfo>
#include <QTextEdit>
#include <QTimer>

// The resources live in a static library: they must be registered by hand.
static void initKlangorResources()
{
    Q_INIT_RESOURCE(klangor);
}

namespace klangor {

namespace {

QString tr8(const char *text)
{
    return QString::fromUtf8(text);
}

template <typename W> W *place(W *widget, int left, int top, int width, int height)
{
    widget->setGeometry(left, top, width, height);
    return widget;
}

QGroupBox *frame(const char *caption, QWidget *parent, int left, int top, int width, int height)
{
    return place(new QGroupBox(tr8(caption), parent), left, top, width, height);
}

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

Form1::Form1(const Form1Services &services, QWidget *parent)
    : QMainWindow(parent), m_services(services)
{
    initKlangorResources();
    m_checker = std::make_unique<WaveChecker>(*m_services.waveDevice);
    m_assigner = std::make_unique<SlotAssigner>(m_services.programFolder, *m_checker);

    setWindowTitle(QStringLiteral("Klangor"));
    // Fixed single border: can be minimized, not resized or maximized.
    setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                   Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint);
    createControls();
    createActions();
    createMenus();
    connectControls();
    setupProgramming();
    setupProjects();
    Form_Load();
}

Form1::~Form1() = default;

void Form1::createControls()
{
    auto *client = new QWidget(this);
    client->setFixedSize(ClientWidth, ClientHeight);
    // The layout is drawn for the classic 8-point dialog font; larger fonts clip captions.
    QFont small = client->font();
    small.setPointSizeF(std::min<qreal>(small.pointSizeF(), 8.0));
    client->setFont(small);
    setCentralWidget(client);

    QGroupBox *frame2 = frame("Sounds", client, 8, 8, 177, 561);
    m_drive1 = place(new QComboBox(frame2), 8, 16, 161, 21);
    m_dir1 = place(new FolderListBox(frame2), 8, 40, 161, 186);
    m_list1 = place(new WaveFileListBox(frame2), 8, 232, 161, 316);

    QGroupBox *frame4 = frame("Slots", client, 192, 8, 273, 337);
    for (int k = 1; k <= 5; ++k) {
        const auto i = static_cast<std::size_t>(k - 1);
        QGroupBox *slotFrame = frame("", frame4, 8, 16 + 56 * (k - 1), 257, 49);
        slotFrame->setTitle(QStringLiteral("Slot %1").arg(k));
        m_slots[i] = place(new SlotBox(slotFrame), 8, 16, 137, 25);
        m_tests[i] = place(new QPushButton(QStringLiteral("Loop"), slotFrame), 144, 16, 41, 25);
        m_loeschen[i] = place(new QPushButton(tr8("Löschen"), slotFrame), 192, 16, 57, 25);
        m_slots[i]->setObjectName(QStringLiteral("Slot%1").arg(k));
        m_tests[i]->setObjectName(QStringLiteral("Test%1").arg(k));
        m_loeschen[i]->setObjectName(QStringLiteral("Command%1").arg(k * 10));
    }
    m_command2 = place(new QPushButton(tr8("Soundgruppe abspielen"), frame4), 8, 296, 257, 33);

    place(new LogoPicture(LogoPicture::Motif::Waveform, client), 193, 354, 175, 61);
    m_command1 = place(new QPushButton(tr8("Sound programmieren"), client), 192, 424, 177, 33);
    m_abbrechen = place(new QPushButton(tr8("Abbrechen"), client), 192, 464, 177, 33);

    m_label2 = place(new QLabel(client), 200, 512, 393, 33);
    QFont statusFont = m_label2->font();
    statusFont.setBold(true);
    statusFont.setPointSizeF(18);
    m_label2->setFont(statusFont);
    QPalette red = m_label2->palette();
    red.setColor(QPalette::WindowText, Qt::red);
    m_label2->setPalette(red);

    m_progressBar1 = place(new QProgressBar(client), 192, 552, 409, 17);
    m_progressBar1->setRange(0, 100);
    m_progressBar1->setValue(0);
    m_progressBar1->setTextVisible(false);
    m_progressBar1->hide();
    m_timer1 = new QTimer(this);
    m_timer1->setInterval(100);

    QGroupBox *frame8 = frame("Qualität", client, 384, 376, 89, 121);
    m_options[0] = place(new QRadioButton(tr8("16 MBit"), frame8), 16, 24, 65, 17);
    m_options[1] = place(new QRadioButton(tr8("2 MBit"), frame8), 16, 48, 65, 17);

    // The port options lie on the window itself, drawn over their frame.
    frame("Serielle Schnittstelle", client, 480, 376, 113, 121);
    auto *ports = new QButtonGroup(this);
    for (int n = 1; n <= 4; ++n) {
        auto *com = place(new QRadioButton(QStringLiteral("Com%1").arg(n), client), 496,
                          400 + 24 * (n - 1), 49, 17);
        com->raise();
        ports->addButton(com, n);
        m_options[static_cast<std::size_t>(n + 1)] = com;
    }

    QGroupBox *frame3 = frame("Sound Definition", client, 472, 8, 313, 65);
    m_label1 = place(new QLabel(frame3), 8, 24, 297, 33);
    m_label1->setWordWrap(true);
    QFont eventFont = m_label1->font();
    eventFont.setBold(true);
    eventFont.setPointSizeF(9.75);
    m_label1->setFont(eventFont);
    QPalette title = m_label1->palette();
    title.setColor(QPalette::WindowText, title.color(QPalette::Active, QPalette::Highlight));
    m_label1->setPalette(title);

    m_list3 = place(new QListWidget(client), 472, 80, 313, 277);
    m_list3->addItems(SoundTable::texts());
    m_list3->setSelectionMode(QAbstractItemView::SingleSelection);

    place(new LogoPicture(LogoPicture::Motif::Locomotive, client), 609, 362, 175, 61);

    QGroupBox *frame6 = frame("CV Daten", client, 608, 432, 177, 137);
    m_options[6] = place(new QRadioButton(tr8("Diesel- /E-Lok"), frame6), 16, 24, 137, 17);
    m_options[7] = place(new QRadioButton(tr8("Dampf-Lok"), frame6), 16, 48, 129, 17);
    m_selectrix = place(new QRadioButton(tr8("Selectrix"), frame6), 16, 72, 81, 17);
    m_command3 = place(new QPushButton(tr8("CV Standardwert laden"), client), 616, 528, 161, 33);
    m_command3->raise();

    QGroupBox *frame5 = frame("Speicherbelegung", client, 792, 8, 105, 561);
    m_cv = place(new QTextEdit(frame5), 8, 16, 89, 537);
    m_cv->setAcceptRichText(false);
    m_cv->setLineWrapMode(QTextEdit::NoWrap);

    // A caption must never be clipped: an option grows to the right when its font needs it.
    for (QRadioButton *option : m_options)
        option->resize(std::max(option->width(), option->sizeHint().width()), option->height());
    m_selectrix->resize(std::max(m_selectrix->width(), m_selectrix->sizeHint().width()),
                        m_selectrix->height());

    m_options[0]->setChecked(true);
    m_options[2]->setChecked(true);
    m_options[6]->setChecked(true);
    for (std::size_t i = 0; i < m_options.size(); ++i)
        m_options[i]->setObjectName(QStringLiteral("Option%1").arg(i + 1));
    m_selectrix->setObjectName(QStringLiteral("Selectrix"));
}

void Form1::createActions()
{
    m_offnen = new QAction(tr8("Öff&nen"), this);
    m_speichern = new QAction(tr8("&Speichern"), this);
    m_speichernunter = new QAction(tr8("Speicher unter..."), this);
    m_ende = new QAction(tr8("&Ende"), this);
    m_info = new QAction(tr8("&Info"), this);
}

void Form1::createMenus()
{
    QMenu *datei = menuBar()->addMenu(tr8("&Datei"));
    datei->addAction(m_offnen);
    datei->addAction(m_speichern);
    datei->addAction(m_speichernunter);
    datei->addSeparator();
    datei->addAction(m_ende);
    // "&Info" is a command of its own on the menu bar.
    menuBar()->addAction(m_info);
}

void Form1::connectControls()
{
    connect(m_drive1, &QComboBox::activated, this, &Form1::Drive1_Change);
    connect(m_dir1, &FolderListBox::pathChanged, this, &Form1::Dir1_Change);
    connect(m_list1, &QListWidget::itemDoubleClicked, this, &Form1::List1_DblClick);
    connect(m_list3, &QListWidget::currentRowChanged, this, &Form1::List3_Click);
    for (int k = 1; k <= 5; ++k) {
        connect(slot(k), &SlotBox::doubleClicked, this, [this, k] { Slot_DblClick(k); });
        connect(slot(k), &SlotBox::dropped, this,
                [this, k](const DropPayload &payload) { Slot_OLEDragDrop(k, payload); });
        connect(loeschen(k), &QPushButton::clicked, this, [this, k] { Loeschen_Click(k); });
        connect(test(k), &QPushButton::clicked, this, [this, k] { Test_Click(k); });
    }
    connect(m_command2, &QPushButton::clicked, this, &Form1::Command2_Click);
    connect(m_command1, &QPushButton::clicked, this, &Form1::Command1_Click);
    connect(m_abbrechen, &QPushButton::clicked, this, &Form1::Abbrechen_Click);
    connect(m_timer1, &QTimer::timeout, this, &Form1::Timer1_Timer);
    connect(m_options[0], &QRadioButton::clicked, this, &Form1::Option1_Click);
    connect(m_options[1], &QRadioButton::clicked, this, &Form1::Option2_Click);
    for (int n = 1; n <= 4; ++n)
        connect(m_options[static_cast<std::size_t>(n + 1)], &QRadioButton::clicked, this,
                [this, n] { ComPort_Click(n); });
    connect(m_options[6], &QRadioButton::clicked, this, &Form1::Option7_Click);
    connect(m_options[7], &QRadioButton::clicked, this, &Form1::Option8_Click);
    connect(m_selectrix, &QRadioButton::clicked, this, &Form1::Selectrix_Click);
    connect(m_command3, &QPushButton::clicked, this, &Form1::Command3_Click);
    connect(m_offnen, &QAction::triggered, this, &Form1::Offnen_Click);
    connect(m_speichern, &QAction::triggered, this, &Form1::Speichern_Click);
    connect(m_speichernunter, &QAction::triggered, this, &Form1::Speichernunter_Click);
    connect(m_ende, &QAction::triggered, this, &Form1::Ende_Click);
    connect(m_info, &QAction::triggered, this, &Form1::Info_Click);
}

QRadioButton *Form1::option(int n) const
{
    return m_options.at(static_cast<std::size_t>(n - 1));
}

QString Form1::programFile(const QString &name) const
{
    return QDir(m_services.programFolder).filePath(name);
}

void Form1::setMousePointer(MousePointer pointer)
{
    m_mousePointer = pointer;
    switch (pointer) {
    case MousePointer::Default:
        unsetCursor();
        break;
    case MousePointer::Hourglass:
        setCursor(Qt::WaitCursor);
        break;
    case MousePointer::ArrowHourglass:
        setCursor(Qt::BusyCursor);
        break;
    }
}

void Form1::Form_Load()
{
    const QStringList roots = driveRoots();
    m_drive1->addItems(roots);
    const QString start =
        m_services.startFolder.isEmpty() ? QDir::currentPath() : m_services.startFolder;
    m_drive1->setCurrentText(driveOf(QFileInfo(start).absoluteFilePath(), roots));
    if (!m_dir1->setPath(start))
        m_dir1->setPath(QDir::rootPath());
    Dir1_Change();

    m_list3->setCurrentRow(0);
    List3_Click(); // the selection signal does not fire when row 0 was already current

    if (!loadCvBox(programFile(QStringLiteral("cvdiesele.dat"))))
        m_label2->setText(tr8("CV-Datei \"cvdiesele.dat\" fehlt"));
    m_slotFileNames.clear();
    m_comPort = 1;
    m_memoryMBit = 16;
    m_cvDefaultFile = QStringLiteral("cvdiesele.dat");
    m_projectPath.clear();

    QFile image(QStringLiteral(":/WAVE/101"));
    if (image.open(QIODevice::ReadOnly))
        m_placeholderWave = image.readAll();
}

void Form1::Drive1_Change()
{
    // A drive that cannot be read leaves the folder list as it was.
    m_dir1->setPath(m_drive1->currentText());
}

void Form1::Dir1_Change()
{
    m_list1->clear();
    m_browseFolder = m_dir1->path();
    if (const auto names = listWaveFiles(m_browseFolder))
        m_list1->addItems(*names);
}

void Form1::List3_Click()
{
    const int event = m_list3->currentRow();
    if (!SoundTable::isValidEvent(event))
        return;
    const EventView view = eventViewFor(event, m_slotFileNames);
    m_label1->setText(view.caption);
    for (int k = 1; k <= 5; ++k) {
        const SlotRowView &row = view.rows[static_cast<std::size_t>(k - 1)];
        slot(k)->setEnabled(row.enabled);
        test(k)->setEnabled(row.enabled);
        loeschen(k)->setEnabled(row.enabled);
        slot(k)->setText(row.text);
    }
}

void Form1::assignToSlot(int k, const QString &slotText, const QString &sourcePath, AssignWay way)
{
    const int number = SoundTable::soundNumber(m_list3->currentRow(), k);
    if (number < 0)
        return;
    const QString previous = slot(k)->text();
    slot(k)->setText(slotText); // stays visible while the check runs
    slot(k)->repaint();
    const Status taken = m_assigner->assign(m_slotFileNames, number, slotText, sourcePath, way);
    if (!taken) {
        m_services.messages->show(taken.error()); // the new name shows until the box is closed
        slot(k)->setText(previous);
    }
}

void Form1::Slot_DblClick(int k)
{
    const QString entry = m_list1->selectedEntry();
    if (entry.isEmpty())
        return;
    assignToSlot(k, entry, pathInFolder(m_browseFolder, entry), AssignWay::DoubleClick);
}

void Form1::Slot_OLEDragDrop(int k, const DropPayload &payload)
{
    if (const auto choice = chooseDrop(payload, m_browseFolder))
        assignToSlot(k, choice->slotText, choice->sourcePath, AssignWay::Drop);
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

void Form1::Option7_Click()
{
    m_cvDefaultFile = QStringLiteral("cvdiesele.dat");
    m_list3->setEnabled(true);
    List3_Click();
}

void Form1::Option8_Click()
{
    m_cvDefaultFile = QStringLiteral("cvdampf.dat");
    m_list3->setEnabled(true);
    List3_Click();
}

void Form1::Selectrix_Click()
{
    m_list3->setEnabled(false);
    for (int k = 1; k <= 5; ++k) {
        slot(k)->setEnabled(false);
        test(k)->setEnabled(false);
    }
    for (int k = 1; k <= 5; ++k)
        loeschen(k)->setEnabled(false);
    m_cvDefaultFile = QStringLiteral("cvselectrix.dat");
}

void Form1::Command3_Click()
{
    const QString path = programFile(m_cvDefaultFile);
    if (!loadCvBox(path))
        m_services.messages->show(
            {tr8("Die CV-Datei \"%1\" konnte nicht gelesen werden.").arg(m_cvDefaultFile),
             tr8("CV Standardwert laden"), MessageIcon::Critical});
}

bool Form1::loadCvBox(const QString &path)
{
    const Result<QString> text = loadCvText(path);
    if (!text)
        return false; // the box keeps its previous text
    m_cv->setPlainText(text.value());
    return true;
}

void Form1::Ende_Click()
{
    // Ends at once: nothing is saved or asked.
    QApplication::closeAllWindows();
    QApplication::quit();
}

} // namespace klangor
