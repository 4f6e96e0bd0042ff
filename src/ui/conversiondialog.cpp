#include "ui/conversiondialog.h"

#include "soundset/wavecheck.h"
#include "ui/qtmessagepresenter.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

namespace klangor {

ConversionDialog::ConversionDialog(const QString &fileName, const SoundLevels &levels,
                                   QWidget *parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("ConversionDialog"));
    setWindowTitle(QStringLiteral("Für den Decoder umwandeln"));
    const double seconds = levels.secondsRead();
    auto *layout = new QVBoxLayout(this);
    const auto addText = [&](const QString &text, const char *name) {
        auto *label = new QLabel(text, this);
        label->setObjectName(QString::fromLatin1(name));
        label->setTextFormat(Qt::PlainText);
        label->setWordWrap(true);
        label->setMinimumWidth(320);
        layout->addWidget(label);
    };
    addText(QStringLiteral("„%1“ (%2 s) wird in einen Mono-Sound mit 11025 Hz umgewandelt; "
                           "das Original bleibt, wie es ist.")
                .arg(screenSizedText(fileName), QLocale(QLocale::German).toString(seconds, 'f', 1)),
            "Beschreibung");
    addText(QStringLiteral("Spitze: %1 dBFS, Lautheit: %2 LUFS")
                .arg(levelText(levels.peakDbfs), levelText(levels.loudnessLufs)),
            "Pegel");
    if (levels.cutShort())
        addText(readablePartText(levels), "Lesbar");
    auto *sixteenBit = new QRadioButton(QStringLiteral("16 Bit (beste Qualität)"), this);
    sixteenBit->setObjectName(QStringLiteral("Bits16"));
    sixteenBit->setChecked(true);
    m_eightBit = new QRadioButton(QStringLiteral("8 Bit (halber Speicherplatz)"), this);
    m_eightBit->setObjectName(QStringLiteral("Bits8"));
    layout->addWidget(sixteenBit);
    layout->addWidget(m_eightBit);
    m_normalize = new QCheckBox(QStringLiteral("Lautstärke anpassen (Spitze auf %1 dBFS)")
                                    .arg(levelText(NormalizedPeakDbfs)),
                                this);
    m_normalize->setObjectName(QStringLiteral("Normalisieren"));
    // In 8 bits a quiet sound is mostly hiss; the choice of bits brings its default along.
    connect(m_eightBit, &QRadioButton::toggled, m_normalize, &QCheckBox::setChecked);
    layout->addWidget(m_normalize);
    // Only a sound the decoder would refuse as too long is offered the cut.
    if (seconds > MaxWaveSeconds) {
        m_trim =
            new QCheckBox(QStringLiteral("Auf 5,9 Sekunden kürzen (mit 10 ms Ausblenden)"), this);
        m_trim->setObjectName(QStringLiteral("Kuerzen"));
        m_trim->setChecked(true);
        layout->addWidget(m_trim);
    }
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(QStringLiteral("Umwandeln"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);
}

ConversionOptions ConversionDialog::options() const
{
    return {.eightBit = m_eightBit->isChecked(),
            .trim = m_trim && m_trim->isChecked(),
            .normalize = m_normalize->isChecked()};
}

ExistingFileChoice askAboutExistingFile(QWidget *parent, const QString &path,
                                        const QString &newName)
{
    const QFileInfo file(path);
    QMessageBox box(QMessageBox::Question, QStringLiteral("Für den Decoder umwandeln"),
                    QStringLiteral("„%1“ gibt es in „%2“ schon.\n\nSoll die Datei ersetzt werden, "
                                   "soll der neue Sound „%3“ heißen, oder wird abgebrochen?")
                        .arg(screenSizedText(file.fileName()),
                             screenSizedText(QDir::toNativeSeparators(file.absolutePath())),
                             screenSizedText(newName)),
                    QMessageBox::NoButton, parent);
    box.setObjectName(QStringLiteral("ErsetzenFrage"));
    box.setTextFormat(Qt::PlainText);
    QPushButton *replace = box.addButton(QStringLiteral("Ersetzen"), QMessageBox::DestructiveRole);
    QPushButton *rename = box.addButton(QStringLiteral("Neuer Name"), QMessageBox::AcceptRole);
    QPushButton *cancel = box.addButton(QStringLiteral("Abbrechen"), QMessageBox::RejectRole);
    box.setDefaultButton(rename); // Enter keeps the old file
    box.setEscapeButton(cancel);
    box.exec();
    if (box.clickedButton() == replace)
        return ExistingFileChoice::Replace;
    if (box.clickedButton() == rename)
        return ExistingFileChoice::NewName;
    return ExistingFileChoice::Cancel;
}

} // namespace klangor
