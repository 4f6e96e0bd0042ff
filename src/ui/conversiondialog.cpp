#include "ui/conversiondialog.h"

#include "soundset/wavecheck.h"
#include "ui/qtmessagepresenter.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

namespace klangor {

ConversionDialog::ConversionDialog(const QString &fileName, double seconds, QWidget *parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("ConversionDialog"));
    setWindowTitle(QStringLiteral("Für den Decoder umwandeln"));
    auto *layout = new QVBoxLayout(this);
    auto *text = new QLabel(
        QStringLiteral("„%1“ (%2 s) wird in einen Mono-Sound mit 11025 Hz umgewandelt; "
                       "das Original bleibt, wie es ist.")
            .arg(screenSizedText(fileName), QLocale(QLocale::German).toString(seconds, 'f', 1)),
        this);
    text->setTextFormat(Qt::PlainText);
    text->setWordWrap(true);
    text->setMinimumWidth(320);
    layout->addWidget(text);
    auto *sixteenBit = new QRadioButton(QStringLiteral("16 Bit (beste Qualität)"), this);
    sixteenBit->setObjectName(QStringLiteral("Bits16"));
    sixteenBit->setChecked(true);
    m_eightBit = new QRadioButton(QStringLiteral("8 Bit (halber Speicherplatz)"), this);
    m_eightBit->setObjectName(QStringLiteral("Bits8"));
    layout->addWidget(sixteenBit);
    layout->addWidget(m_eightBit);
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
    return {m_eightBit->isChecked(), m_trim && m_trim->isChecked()};
}

} // namespace klangor
