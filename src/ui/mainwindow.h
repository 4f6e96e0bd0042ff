#pragma once

#include "platform/mousepointer.h"
#include "soundset/slotassignment.h"
#include "soundset/slotfilenames.h"

#include <array>
#include <functional>
#include <memory>
#include <QMainWindow>

class QAction;
class QButtonGroup;
class QComboBox;
class QGroupBox;
class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;
class QRadioButton;
class QTextEdit;
class QTimer;

namespace klangor {

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
struct Form1Services
{
    QString programFolder; // working files, sound list, CV files
    QString startFolder;   // the folder the file browser starts in
    SoundService *sound = nullptr;
    MessagePresenter *messages = nullptr;
    WaveAudioDevice *waveDevice = nullptr;
    ProjectDialogs *dialogs = nullptr;
    ProgramLauncher *launcher = nullptr;
    std::function<std::unique_ptr<ToolProcess>()> makeToolProcess;
};

// The program's one working window. Handlers keep the names of their controls and events.
class Form1 : public QMainWindow
{
    Q_OBJECT

public:
    static constexpr int ClientWidth = 906;
    static constexpr int ClientHeight = 573;

    explicit Form1(const Form1Services &services, QWidget *parent = nullptr);
    ~Form1() override;

    // Window state, for the parts of the program and for tests.
    const SlotFileNames &slotFileNames() const { return m_slotFileNames; }
    const QString &browseFolder() const { return m_browseFolder; }
    int comPort() const { return m_comPort; }
    int memoryMBit() const { return m_memoryMBit; }
    const QString &cvDefaultFile() const { return m_cvDefaultFile; }
    const QString &projectPath() const { return m_projectPath; }
    const QByteArray &placeholderWave() const { return m_placeholderWave; }
    MousePointer mousePointer() const { return m_mousePointer; }
    const QString &programFolder() const { return m_services.programFolder; }

    // Controls, for tests that drive the window as a user would.
    QComboBox *drive1() const { return m_drive1; }
    FolderListBox *dir1() const { return m_dir1; }
    WaveFileListBox *list1() const { return m_list1; }
    QListWidget *list3() const { return m_list3; }
    QLabel *label1() const { return m_label1; }
    QLabel *label2() const { return m_label2; }
    SlotBox *slot(int k) const { return m_slots.at(static_cast<std::size_t>(k - 1)); }
    QPushButton *test(int k) const { return m_tests.at(static_cast<std::size_t>(k - 1)); }
    QPushButton *loeschen(int k) const { return m_loeschen.at(static_cast<std::size_t>(k - 1)); }
    QPushButton *command1() const { return m_command1; }
    QPushButton *command2() const { return m_command2; }
    QPushButton *command3() const { return m_command3; }
    QPushButton *abbrechen() const { return m_abbrechen; }
    QProgressBar *progressBar1() const { return m_progressBar1; }
    QTimer *timer1() const { return m_timer1; }
    QRadioButton *option(int n) const; // Option1..Option8
    QRadioButton *selectrix() const { return m_selectrix; }
    QTextEdit *cv() const { return m_cv; }
    QAction *menuOffnen() const { return m_offnen; }
    QAction *menuSpeichern() const { return m_speichern; }
    QAction *menuSpeichernunter() const { return m_speichernunter; }
    QAction *menuEnde() const { return m_ende; }
    QAction *menuInfo() const { return m_info; }
    frmAbout *aboutBox() const { return m_about; }

public slots:
    // Start-up and file browser
    void Form_Load();
    void Drive1_Change();
    void Dir1_Change();
    void List1_DblClick();
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
    void Option7_Click();
    void Option8_Click();
    void Selectrix_Click();
    void Command3_Click();

    // Menu
    void Offnen_Click();
    void Speichern_Click();
    void Speichernunter_Click();
    void Ende_Click();
    void Info_Click();

public:
    // The CV box's two operations.
    bool loadCvBox(const QString &path);
    void setMousePointer(MousePointer pointer);
    QString programFile(const QString &name) const;

private:
    void createControls();
    void createActions();
    void createMenus();
    void connectControls();
    void setupProgramming();
    void setupProjects();
    void assignToSlot(int k, const QString &slotText, const QString &sourcePath, AssignWay way);

    Form1Services m_services;
    std::unique_ptr<WaveChecker> m_checker;
    std::unique_ptr<SlotAssigner> m_assigner;
    std::unique_ptr<ProgrammingRun> m_run;
    std::unique_ptr<ProjectCommands> m_projects;

    // Window state
    SlotFileNames m_slotFileNames;
    QString m_browseFolder;
    int m_comPort = 1;
    int m_memoryMBit = 16;
    QString m_cvDefaultFile;
    QString m_projectPath;
    QByteArray m_placeholderWave;
    MousePointer m_mousePointer = MousePointer::Default;

    // Controls
    QComboBox *m_drive1 = nullptr;
    FolderListBox *m_dir1 = nullptr;
    WaveFileListBox *m_list1 = nullptr;
    QListWidget *m_list3 = nullptr;
    QLabel *m_label1 = nullptr;
    QLabel *m_label2 = nullptr;
    std::array<SlotBox *, 5> m_slots{};
    std::array<QPushButton *, 5> m_tests{};
    std::array<QPushButton *, 5> m_loeschen{};
    QPushButton *m_command1 = nullptr;
    QPushButton *m_command2 = nullptr;
    QPushButton *m_command3 = nullptr;
    QPushButton *m_abbrechen = nullptr;
    QProgressBar *m_progressBar1 = nullptr;
    QTimer *m_timer1 = nullptr;
    std::array<QRadioButton *, 8> m_options{};
    QRadioButton *m_selectrix = nullptr;
    QTextEdit *m_cv = nullptr;
    QAction *m_offnen = nullptr;
    QAction *m_speichern = nullptr;
    QAction *m_speichernunter = nullptr;
    QAction *m_ende = nullptr;
    QAction *m_info = nullptr;
    frmAbout *m_about = nullptr;

    friend class ProjectHostAdapter;
};

} // namespace klangor
