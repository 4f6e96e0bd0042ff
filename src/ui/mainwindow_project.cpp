// Sound projects and the about box.
#include "platform/messagebox.h"
#include "project/projectcommands.h"
#include "ui/aboutdialog.h"
#include "ui/mainwindow.h"

#include <QTextEdit>

namespace klangor {

// The window as the project commands see it.
class ProjectHostAdapter final : public ProjectHost
{
public:
    explicit ProjectHostAdapter(Form1 &window) : m_window(window) {}

    QString programFolder() const override { return m_window.programFolder(); }
    const SlotFileNames &slotFileNames() const override { return m_window.m_slotFileNames; }
    void setSlotFileNames(const SlotFileNames &names) override { m_window.m_slotFileNames = names; }
    QString projectPath() const override { return m_window.m_projectPath; }
    void setProjectPath(const QString &path) override { m_window.m_projectPath = path; }
    QString cvText() const override { return m_window.m_cv->toPlainText(); }
    void setCvText(const QString &text) override { m_window.m_cv->setPlainText(text); }
    void refreshEventView() override { m_window.List3_Click(); }
    void setMousePointer(MousePointer pointer) override { m_window.setMousePointer(pointer); }
    void showMessage(const UserMessage &message) override
    {
        if (m_window.m_services.messages)
            m_window.m_services.messages->show(message);
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

void Form1::Speichern_Click()
{
    m_projects->save();
}

void Form1::Speichernunter_Click()
{
    m_projects->saveAs();
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
