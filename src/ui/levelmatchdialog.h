#pragma once

#include "soundset/levelmatch.h"

#include <QDialog>
#include <QTemporaryDir>

class QDoubleSpinBox;
class QLabel;
class QTableWidget;

namespace klangor {

class MessagePresenter;
class SoundService;

// Shows every assigned sound with its loudness and peak and what matching the set to a target
// does to it; each sound can be heard as it is and as it would become. Accepting it means the
// user wants the plan applied.
class LevelMatchDialog : public QDialog
{
    Q_OBJECT

public:
    enum Column
    {
        NumberColumn,
        EventColumn,
        NameColumn,
        LoudnessColumn,
        PeakColumn,
        GainColumn,
        NewLoudnessColumn,
        ColumnCount
    };

    LevelMatchDialog(LevelMatchPlan plan, QString programFolder, SoundService &sound,
                     MessagePresenter &messages, QWidget *parent = nullptr);

    const LevelMatchPlan &plan() const { return m_plan; }

private:
    void showPlan();
    void listenBefore();
    void listenAfter();
    const LevelMatchSound *selectedSound() const;

    LevelMatchPlan m_plan;
    QString m_programFolder;
    SoundService &m_sound;
    MessagePresenter &m_messages;
    QTemporaryDir m_previews;
    QDoubleSpinBox *m_target = nullptr;
    QTableWidget *m_table = nullptr;
};

} // namespace klangor
