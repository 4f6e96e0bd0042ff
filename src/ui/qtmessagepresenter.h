#pragma once

#include "platform/messagebox.h"

class QWidget;

namespace klangor {

// Shows messages as modal boxes with the OK button only.
class QtMessagePresenter final : public MessagePresenter
{
public:
    explicit QtMessagePresenter(QWidget *parent = nullptr) : m_parent(parent) {}
    void setParent(QWidget *parent) { m_parent = parent; }
    void show(const UserMessage &message) override;

private:
    QWidget *m_parent;
};

} // namespace klangor
