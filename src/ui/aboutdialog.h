#pragma once

#include <QDialog>

namespace klangor {

class MessagePresenter;
class ProgramLauncher;

// The about box: program name, version, the maker's contact lines and the way to the
// system information program. Shown without blocking the main window.
class frmAbout : public QDialog
{
    Q_OBJECT

public:
    // Either service may be null; the system information program is then unavailable.
    frmAbout(ProgramLauncher *launcher, MessagePresenter *messages, QWidget *parent = nullptr);

    // Every way of closing the box (OK, Esc, the close box) ends here.
    void done(int result) override;

signals:
    // The box has been closed and will be unloaded.
    void unloaded();

private:
    void cmdSysInfo_Click();

    ProgramLauncher *m_launcher;
    MessagePresenter *m_messages;
};

} // namespace klangor
