#pragma once

#include "soundset/soundconversion.h"

#include <QDialog>

class QCheckBox;
class QRadioButton;

namespace klangor {

// Shows a sound's levels and asks how it is to be converted for the decoder: 16 or 8 bits,
// whether its level is raised (at first for 8 bits, where a quiet sound drowns in the hiss), and
// for a sound longer than the decoder takes, whether to cut it.
class ConversionDialog : public QDialog
{
    Q_OBJECT

public:
    ConversionDialog(const QString &fileName, const SoundLevels &levels, QWidget *parent = nullptr);

    ConversionOptions options() const;

private:
    QRadioButton *m_eightBit = nullptr;
    QCheckBox *m_normalize = nullptr;
    QCheckBox *m_trim = nullptr;
};

enum class ExistingFileChoice
{
    Replace,
    NewName,
    Cancel
};

// Asks what becomes of the file at path, which is there already: "Ersetzen", "Neuer Name"
// (newName, beside it) or "Abbrechen".
ExistingFileChoice askAboutExistingFile(QWidget *parent, const QString &path,
                                        const QString &newName);

} // namespace klangor
