#pragma once

#include "common/mousepointer.h"
#include "soundset/slotassignment.h"
#include "soundset/slotfilenames.h"

#include <array>
#include <functional>
#include <memory>
#include <QMainWindow>

class QAction;
class QComboBox;
class QFileSystemWatcher;
class QLabel;
class QListWidget;
class QMenu;
class QProgressBar;
class QPushButton;
class QRadioButton;
class QTextEdit;
class QTimer;

namespace klangor {

class DriveListBox;
class FolderListBox;
class MessagePresenter;
class ProgramLauncher;
class ProgrammingRun;
class ProjectCommands;
class ProjectDialogs;
class SlotAssigner;
class SlotBox;
class SoundService;
class ToolProcess;
class WaveAudioDevice;
class WaveChecker;
class WaveFileListBox;
class frmAbout;

// What the window needs from outside; the caller keeps these alive as long as the window.
struct WindowServices
{
    QString programFolder; // working files, sound list, CV files
    QString startFolder;   // the folder the file browser starts in
    SoundService *sound = nullptr;
    MessagePresenter *messages = nullptr;
    WaveAudioDevice *waveDevice = nullptr;
    ProjectDialogs *dialogs = nullptr;
    ProgramLauncher *launcher = nullptr;
    std::function<std::unique_ptr<ToolProcess>()> makeToolProcess;
    QString deviceRoot = QStringLiteral("/dev"); // where the serial adapters are listed
};

// The program's one working window. Controls carry their names as object names, and handlers
// are named after their control and event.
class Form1 : public QMainWindow
{
    Q_OBJECT

public:
    static constexpr int ClientWidth = 906;
    static constexpr int ClientHeight = 573;
    static constexpr int SlotRows = 5;
    // The window's font, at 8 points; a dependency of the package.
    static inline const QString WindowFontFamily = QStringLiteral("Liberation Sans");
    static inline const QString NarrowFontFamily = QStringLiteral("Liberation Sans Narrow");

    explicit Form1(const WindowServices &services, QWidget *parent = nullptr);
    ~Form1() override;

    const SlotFileNames &slotFileNames() const { return m_slotFileNames; }
    const QString &programFolder() const { return m_services.programFolder; }
    // Opens a project as "Öff&nen" does once the file is chosen.
    void openProject(const QString &projectPath);

public slots:
    // Start-up and file browser
    void Form_Load();
    void Drive1_Change();
    void Dir1_Change();
    void List1_DblClick();
    void List1_ContextMenu(const QPoint &position);
    void Umwandeln_Click();
    void List3_Click();

    // Slot rows (k = 1..5)
    void Slot_DblClick(int k);
    void Slot_OLEDragDrop(int k, const klangor::DropPayload &payload);
    void Loeschen_Click(int k);
    void Test_Click(int k);
    void ResetLoopButtons();
    void Command2_Click();

    // Programming
    void Command1_Click();
    void Abbrechen_Click();
    void Timer1_Timer();

    // Settings and CV data
    void Option1_Click();
    void Option2_Click();
    void ComPort_Click(int port);
    void ComPort_ContextMenu(int port, const QPoint &position);
    void Option7_Click();
    void Option8_Click();
    void Selectrix_Click();
    void Command3_Click();

    // Menu
    void Offnen_Click();
    void Speichern_Click();
    void Speichernunter_Click();
    void Angleichen_Click();
    void Ende_Click();
    void Info_Click();

private:
    // The three controls of one slot row.
    struct SlotRow
    {
        SlotBox *slot = nullptr;
        QPushButton *test = nullptr;     // "Loop" / "Stop"
        QPushButton *loeschen = nullptr; // "Löschen"
    };

    void createControls();
    void createActions();
    void createMenus();
    void connectControls();
    void setupProgramming();
    QString portToolTip(int port) const;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void setupProjects();
    SlotRow &row(int k) { return m_rows.at(static_cast<std::size_t>(k - 1)); }
    void showConvertedFile(const QString &path);
    // Lists the browsed folder again, keeping the selection.
    void relistBrowseFolder();
    void convertAndAssign(int k, const QString &source, AssignWay way);
    // Measures source, asks how to convert it and where an output exists what becomes of it,
    // then converts it off the window's thread. The output's path, or nullopt when the user
    // cancelled or a message has told why there is none.
    std::optional<QString> convertInWindow(const QString &source, const QString &entry);
    void assignToSlot(int k, const QString &slotText, const QString &sourcePath, AssignWay way);
    void stopLoop(int k);
    Status loadCvBox(const QString &path);
    void setMousePointer(MousePointer pointer);
    QString programFile(const QString &name) const;

    WindowServices m_services;
    std::unique_ptr<WaveChecker> m_checker;
    std::unique_ptr<SlotAssigner> m_assigner;
    std::unique_ptr<ProgrammingRun> m_run;
    std::unique_ptr<ProjectCommands> m_projects;

    // Window state
    SlotFileNames m_slotFileNames;
    QString m_browseFolder;
    int m_comPort = 1;
    std::array<QString, 4> m_portDevices{}; // the adapter chosen for Com1..Com4; "": the only one
    int m_memoryMBit = 16;
    QString m_cvDefaultFile;
    QString m_projectPath;

    // Controls
    DriveListBox *m_drive1 = nullptr;
    FolderListBox *m_dir1 = nullptr;
    WaveFileListBox *m_list1 = nullptr;
    QListWidget *m_list3 = nullptr;
    QLabel *m_label1 = nullptr;
    QLabel *m_label2 = nullptr;
    std::array<SlotRow, SlotRows> m_rows{};
    QPushButton *m_command1 = nullptr;
    QPushButton *m_command2 = nullptr;
    QPushButton *m_command3 = nullptr;
    QPushButton *m_abbrechen = nullptr;
    QProgressBar *m_progressBar1 = nullptr;
    QTimer *m_timer1 = nullptr;
    QRadioButton *m_memory16MBit = nullptr;     // Option1
    QRadioButton *m_memory2MBit = nullptr;      // Option2
    std::array<QRadioButton *, 4> m_comPorts{}; // Option3..Option6: Com1..Com4
    QRadioButton *m_cvDiesel = nullptr;         // Option7
    QRadioButton *m_cvSteam = nullptr;          // Option8
    QRadioButton *m_cvSelectrix = nullptr;
    QTextEdit *m_cv = nullptr;
    QAction *m_offnen = nullptr;
    QAction *m_speichern = nullptr;
    QAction *m_speichernunter = nullptr;
    QAction *m_angleichen = nullptr;
    QAction *m_ende = nullptr;
    QAction *m_info = nullptr;
    QAction *m_umwandeln = nullptr;
    QMenu *m_list1Menu = nullptr;                  // the file list's context menu
    QMenu *m_comMenu = nullptr;                    // the adapters for one of the Com buttons
    QFileSystemWatcher *m_folderWatcher = nullptr; // the browsed folder, for the file list
    QTimer *m_relistTimer = nullptr;               // one listing for a burst of changes on disk
    // Counts the listings: a header check that ends after a newer listing is dropped.
    int m_listing = 0;
    frmAbout *m_about = nullptr;

    friend class ProjectHostAdapter;
};

} // namespace klangor
