#include "ui/levelmatchdialog.h"

#include "platform/messagebox.h"
#include "platform/programfiles.h"
#include "platform/safefile.h"
#include "playback/soundservice.h"
#include "soundset/soundtable.h"
#include "ui/backgroundwork.h"
#include "ui/qtmessagepresenter.h"

#include <cmath>
#include <QDialogButtonBox>
#include <QDir>
#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace klangor {

namespace {

constexpr double DefaultTargetLufs = -23;

QTableWidgetItem *cell(const QString &text, bool number)
{
    auto *item = new QTableWidgetItem(text);
    item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
    if (number)
        item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    return item;
}

QString gainText(double db)
{
    return (db > 0.05 ? QStringLiteral("+") : QString()) + levelText(db);
}

} // namespace

LevelMatchDialog::LevelMatchDialog(LevelMatchPlan plan, QString programFolder, SoundService &sound,
                                   MessagePresenter &messages, QWidget *parent)
    : QDialog(parent), m_plan(std::move(plan)), m_programFolder(std::move(programFolder)),
      m_sound(sound), m_messages(messages)
{
    setObjectName(QStringLiteral("Angleichen"));
    setWindowTitle(QStringLiteral("Lautstärke der Sounds angleichen"));
    auto *layout = new QVBoxLayout(this);
    auto *about = new QLabel(
        QStringLiteral("Jedes Soundereignis wird als Ganzes auf die Ziel-Lautheit gebracht; die "
                       "Sounds eines Ereignisses behalten ihr Verhältnis zueinander. Kein Sound "
                       "wird über %1 dBFS Spitze angehoben (*).\n"
                       "Angleichen ersetzt die Arbeitsdateien im Programmordner, alle oder "
                       "keine. Die Projektdatei behält die alten Sounds, bis sie gespeichert "
                       "wird: erneutes Öffnen nimmt das Angleichen zurück.")
            .arg(levelText(NormalizedPeakDbfs)),
        this);
    about->setTextFormat(Qt::PlainText);
    about->setWordWrap(true);
    layout->addWidget(about);

    auto *targetRow = new QHBoxLayout;
    targetRow->addWidget(new QLabel(QStringLiteral("Ziel-Lautheit:"), this));
    m_target = new QDoubleSpinBox(this);
    m_target->setObjectName(QStringLiteral("Ziel"));
    m_target->setLocale(QLocale(QLocale::German));
    m_target->setRange(-60, -5);
    m_target->setDecimals(1);
    m_target->setSingleStep(0.5);
    m_target->setSuffix(QStringLiteral(" LUFS"));
    m_target->setValue(std::isfinite(m_plan.targetLufs) ? m_plan.targetLufs : DefaultTargetLufs);
    targetRow->addWidget(m_target);
    auto *median = new QPushButton(QStringLiteral("Median der Ereignisse"), this);
    median->setObjectName(QStringLiteral("Median"));
    median->setEnabled(std::isfinite(m_plan.medianLufs()));
    targetRow->addWidget(median);
    targetRow->addStretch();
    layout->addLayout(targetRow);

    m_table = new QTableWidget(static_cast<int>(m_plan.sounds.size()), ColumnCount, this);
    m_table->setObjectName(QStringLiteral("Sounds"));
    m_table->setHorizontalHeaderLabels({QStringLiteral("Nr."), QStringLiteral("Ereignis"),
                                        QStringLiteral("Sound"), QStringLiteral("Lautheit"),
                                        QStringLiteral("Spitze"), QStringLiteral("Änderung"),
                                        QStringLiteral("Danach")});
    m_table->verticalHeader()->hide();
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setMinimumSize(720, 360);
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setSectionResizeMode(EventColumn, QHeaderView::Stretch);
    for (int row = 0; row < m_table->rowCount(); ++row) {
        const LevelMatchSound &s = m_plan.sounds[row];
        m_table->setItem(row, NumberColumn, cell(QString::number(s.soundNumber), true));
        m_table->setItem(row, EventColumn,
                         cell(SoundTable::isValidEvent(s.event) ? SoundTable::text(s.event)
                                                                : QStringLiteral("—"),
                              false));
        m_table->setItem(row, NameColumn, cell(s.name, false));
        m_table->item(row, NameColumn)->setToolTip(plainToolTip(s.name));
        m_table->setItem(row, LoudnessColumn,
                         cell(levelText(s.levels.loudnessLufs) + QStringLiteral(" LUFS"), true));
        m_table->setItem(row, PeakColumn,
                         cell(levelText(s.levels.peakDbfs) + QStringLiteral(" dBFS"), true));
    }
    if (m_table->rowCount() > 0)
        m_table->selectRow(0);
    layout->addWidget(m_table);

    auto *buttons = new QDialogButtonBox(this);
    auto *before =
        buttons->addButton(QStringLiteral("Vorher anhören"), QDialogButtonBox::ActionRole);
    before->setObjectName(QStringLiteral("Vorher"));
    auto *after =
        buttons->addButton(QStringLiteral("Nachher anhören"), QDialogButtonBox::ActionRole);
    after->setObjectName(QStringLiteral("Nachher"));
    // Not the accepting role: the box would make it the default button, which Enter in the
    // target box presses.
    auto *apply = buttons->addButton(QStringLiteral("Angleichen"), QDialogButtonBox::ActionRole);
    apply->setObjectName(QStringLiteral("Anwenden"));
    buttons->addButton(QStringLiteral("Abbrechen"), QDialogButtonBox::RejectRole);
    layout->addWidget(buttons);
    for (QPushButton *button : findChildren<QPushButton *>())
        button->setAutoDefault(false);

    connect(m_target, &QDoubleSpinBox::valueChanged, this, [this](double lufs) {
        m_plan.setTarget(lufs);
        showPlan();
    });
    connect(median, &QPushButton::clicked, this,
            [this] { m_target->setValue(m_plan.medianLufs()); });
    connect(before, &QPushButton::clicked, this, &LevelMatchDialog::listenBefore);
    connect(after, &QPushButton::clicked, this, &LevelMatchDialog::listenAfter);
    connect(apply, &QPushButton::clicked, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    // The dialog's own target, rounded as shown, is the one applied.
    m_plan.setTarget(m_target->value());
    showPlan();
}

void LevelMatchDialog::showPlan()
{
    for (int row = 0; row < m_table->rowCount(); ++row) {
        const LevelMatchSound &s = m_plan.sounds[row];
        const QString mark = s.limited ? QStringLiteral(" *") : QString();
        m_table->setItem(row, GainColumn,
                         cell(gainText(s.gainDb) + QStringLiteral(" dB") + mark, true));
        m_table->setItem(row, NewLoudnessColumn,
                         cell(levelText(s.newLoudnessLufs()) + QStringLiteral(" LUFS"), true));
    }
}

const LevelMatchSound *LevelMatchDialog::selectedSound() const
{
    const int row = m_table->currentRow();
    return row >= 0 && row < m_plan.sounds.size() ? &m_plan.sounds[row] : nullptr;
}

void LevelMatchDialog::listenBefore()
{
    if (const LevelMatchSound *s = selectedSound())
        m_sound.PlaySoundOnce(QDir(m_programFolder).filePath(workingFileName(s->soundNumber)));
}

// The sound as it would become is written to a file of the dialog's own and played from there;
// the working file stays as it is.
void LevelMatchDialog::listenAfter()
{
    const LevelMatchSound *s = selectedSound();
    if (!s)
        return;
    const QString preview = m_previews.filePath(QStringLiteral("%1.wav").arg(s->soundNumber));
    // Reading, changing and writing a sound of up to 4 MB is no work for the window's thread.
    const std::optional<Status> made = runWithProgress<Status>(
        this, windowTitle(), QStringLiteral("Der Sound wird vorbereitet..."),
        [folder = m_programFolder, sound = *s, preview](const ConversionProgress &) -> Status {
            const Result<QByteArray> wave = levelMatchedWave(folder, sound);
            if (!wave)
                return wave.error();
            return writeFileSafely(preview, wave.value());
        });
    if (made && !*made)
        m_messages.show(made->error());
    else if (made)
        m_sound.PlaySoundOnce(preview);
}

} // namespace klangor
