#pragma once

#include <array>
#include <QDialog>

class QLabel;
class QPushButton;

namespace klangor {

class MessagePresenter;
class ProgramLauncher;
class Registry;

// The about box: program name, version, the maker's contact lines and the way to the
// system information tool. Shown without blocking the main window.
class frmAbout : public QDialog
{
    Q_OBJECT

public:
    static constexpr int LineCount = 5;

    // The three services may be null; the system information tool is then unavailable.
    frmAbout(Registry *registry, ProgramLauncher *launcher, MessagePresenter *messages,
             QWidget *parent = nullptr);

    QLabel *picIcon() const { return m_picIcon; }
    QLabel *lblTitle() const { return m_lblTitle; }
    QLabel *lblVersion() const { return m_lblVersion; }
    QLabel *label(int k) const { return m_labels.at(static_cast<std::size_t>(k - 1)); } // 1..6
    QPushButton *cmdOK() const { return m_cmdOK; }
    QPushButton *cmdSysInfo() const { return m_cmdSysInfo; }

    static QString versionText();

    // Every way of closing the box (OK, Esc, the close box) ends here.
    void done(int result) override;

public slots:
    void cmdOK_Click();
    void cmdSysInfo_Click();

signals:
    // The box has been closed and will be unloaded.
    void unloaded();

private:
    void Form_Load();

    Registry *m_registry;
    ProgramLauncher *m_launcher;
    MessagePresenter *m_messages;

    QLabel *m_picIcon = nullptr;
    QLabel *m_lblTitle = nullptr;
    QLabel *m_lblVersion = nullptr;
    std::array<QLabel *, 6> m_labels{};
    QPushButton *m_cmdOK = nullptr;
    QPushButton *m_cmdSysInfo = nullptr;
};

} // namespace klangor
