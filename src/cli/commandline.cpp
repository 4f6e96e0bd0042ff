#include "cli/commandline.h"

#include "cli/commands.h"

#include <algorithm>
#include <cstdio>
#include <QCoreApplication>
#include <QFile>

namespace klangor {

// A new command is one entry here and its function.
const QList<CommandLineCommand> &commandLineCommands()
{
    static const QList<CommandLineCommand> table = {
        {.name = QStringLiteral("check"),
         .arguments = QStringLiteral("DATEI..."),
         .summary = QStringLiteral("prüft WAV-Dateien nach den Regeln des Decoders"),
         .description = QStringLiteral(
             "Prüft jede DATEI wie das Fenster, bevor es einen Sound einem Slot zuweist: Mono, "
             "11025 Hz, 8 oder 16 Bit, höchstens 5,9 Sekunden. Gibt je Datei eine Zeile aus: "
             "den Dateinamen, einen Tabulator und „OK“ oder die Meldung der Prüfung.\n"
             "Rückgabewert 0, wenn alle Dateien die Prüfung bestehen, sonst 1."),
         .minArguments = 1,
         .run = &runCheck},
        {.name = QStringLiteral("convert"),
         .arguments = QStringLiteral("EINGABE... -o ORDNER"),
         .summary = QStringLiteral("wandelt Tondateien für den Decoder um"),
         .description = QStringLiteral(
             "Wandelt jede EINGABE (WAV jeder Art, AIFF, FLAC, Ogg Vorbis und was libsndfile "
             "sonst liest) wie das Fenster in einen Mono-Sound mit 11025 Hz um und legt ihn als "
             "NAME_decoder.wav in ORDNER ab; ORDNER wird angelegt, wenn es ihn nicht gibt. Eine "
             "Datei, die schon passt, wird unverändert kopiert; das Original bleibt, wie es ist. "
             "Alle neuen Dateien werden zusammen geschrieben. Eine vorhandene Datei wird nur mit "
             "--overwrite ersetzt, eine EINGABE nie; sonst wird nichts umgewandelt. Gibt je "
             "EINGABE eine Zeile aus: den "
             "Dateinamen, einen Tabulator und den Pfad der neuen Datei oder die Meldung, warum "
             "es keine gibt. Ein Sound, der länger als 5,9 Sekunden würde, wird ohne --trim "
             "nicht umgewandelt. Was die Umwandlung von sich aus tut, steht auf der "
             "Standardfehlerausgabe: ein Sound, der übersteuert wäre, wird gerade so weit leiser, "
             "dass nichts abgeschnitten wird; von einer abgeschnittenen oder beschädigten Datei "
             "wird der lesbare Teil umgewandelt.\n"
             "Rückgabewert 0, wenn alle Dateien umgewandelt sind, sonst 1."),
         .options = {{QStringLiteral("--8bit"),
                      {},
                      QStringLiteral("8 Bit mit Dreiecks-Dither statt 16 Bit")},
                     {QStringLiteral("--trim"),
                      {},
                      QStringLiteral("kürzt längere Sounds auf 5,9 s mit 10 ms Ausblenden")},
                     {QStringLiteral("--overwrite"),
                      {},
                      QStringLiteral("ersetzt vorhandene Dateien gleichen Namens")},
                     {QStringLiteral("--normalize"),
                      {},
                      QStringLiteral("bringt die Spitze auf -1 dBFS (hebt leise Sounds an)")},
                     {QStringLiteral("-o"), QStringLiteral("ORDNER"),
                      QStringLiteral("wohin die neuen Dateien kommen (Pflicht)"), true}},
         .minArguments = 1,
         .run = &runConvert},
        {.name = QStringLiteral("loudness"),
         .arguments = QStringLiteral("DATEI..."),
         .summary = QStringLiteral("misst Lautheit und Spitzenpegel von Tondateien"),
         .description = QStringLiteral(
             "Misst jede DATEI (was libsndfile liest) ganz: die integrierte Lautheit nach EBU "
             "R 128 in LUFS (bei Sounds unter 0,5 Sekunden über den ganzen Sound) und den "
             "höchsten Abtastwert in dBFS. Gibt je Datei eine Zeile aus: den Dateinamen, einen "
             "Tabulator, die Lautheit, einen Tabulator und die Spitze, mit Punkt und einer "
             "Nachkommastelle; „-inf“ steht für Stille. Eine Datei, die nicht lesbar ist, bekommt "
             "statt der Werte ihre Meldung; bei einer abgeschnittenen sagt die "
             "Standardfehlerausgabe, wie viel davon lesbar war.\n"
             "Rückgabewert 0, wenn alle Dateien gemessen sind, sonst 1."),
         .minArguments = 1,
         .run = &runLoudness},
        {.name = QStringLiteral("project show"),
         .arguments = QStringLiteral("DATEI.spj"),
         .summary = QStringLiteral("zeigt Slots, Sounds und CV-Liste eines Sound Projekts"),
         .description = QStringLiteral(
             "Gibt je Zeile einen Eintrag aus, die Felder durch Tabulatoren getrennt, „-“ für ein "
             "leeres Feld:\n"
             "  ereignis NUMMER TEXT\n"
             "  slot EREIGNIS SLOT SOUNDNUMMER NAME LÄNGE_MS BIT DATENBYTES\n"
             "  gesamt LÄNGE_MS DATENBYTES\n"
             "  cv ZEILE\n"
             "Soundnummern 72 bis 87 gehören zu keinem Slot; sie stehen nur da, wenn sie "
             "belegt sind. Die Gesamtwerte zählen alle belegten Sounds."),
         .minArguments = 1,
         .maxArguments = 1,
         .run = &runProjectShow},
        {.name = QStringLiteral("project unpack"),
         .arguments = QStringLiteral("DATEI.spj ORDNER"),
         .summary = QStringLiteral("legt Sounds und CV-Liste eines Sound Projekts in ORDNER ab"),
         .description = QStringLiteral(
             "Schreibt jeden belegten Sound unter dem Dateinamen seines Slots nach ORDNER, dazu "
             "die cvlist.dat. Ein Slot-Name, der auf einen Ordner zeigt, zählt nur mit seinem "
             "letzten Teil. Ein Name, der mit einem Punkt beginnt, ein Programm wäre (.exe, "
             ".bat, .com, .cmd, .sh), Klangor gehört, unter Windows nicht erlaubt ist oder "
             "schon einen anderen Sound trägt, wird gemeldet (Rückgabewert 1), und der Sound "
             "wird als slot-N.wav geschrieben. ORDNER muss leer sein oder wird angelegt; "
             "Verknüpfungen darin werden ersetzt, nie verfolgt."),
         .options = {{QStringLiteral("--overwrite"),
                      {},
                      QStringLiteral("packt auch in einen vollen Ordner aus und ersetzt dort "
                                     "Dateien gleichen Namens")}},
         .minArguments = 2,
         .maxArguments = 2,
         .run = &runProjectUnpack},
        {.name = QStringLiteral("project pack"),
         .arguments = QStringLiteral("ORDNER DATEI.spj"),
         .summary =
             QStringLiteral("baut ein Sound Projekt aus einem Ordner wie dem Programmordner"),
         .description = QStringLiteral(
             "Liest die sound.arr, die Arbeitsdateien 0.wav bis 87.wav der belegten Soundnummern "
             "und die cvlist.dat aus ORDNER und schreibt daraus ein Sound Projekt mit denselben "
             "Einträgen, die das Fenster beim Speichern schreibt; die Einträge tragen ORDNER als "
             "Ordner. ORDNER wird nicht verändert. Eine vorhandene DATEI.spj wird nur mit "
             "--overwrite ersetzt."),
         .options = {{QStringLiteral("--overwrite"), {}, QStringLiteral("ersetzt DATEI.spj")}},
         .minArguments = 2,
         .maxArguments = 2,
         .run = &runProjectPack},
        {.name = QStringLiteral("project normalize"),
         .arguments = QStringLiteral("DATEI.spj AUSGABE.spj"),
         .summary = QStringLiteral("gleicht die Lautstärke der Sounds eines Sound Projekts an"),
         .description = QStringLiteral(
             "Misst jeden belegten Sound des Projekts und bringt jedes Sound-Ereignis auf eine "
             "Ziel-Lautheit: alle Sounds eines Ereignisses um denselben Betrag, so dass sie "
             "zueinander bleiben, wie sie sind. Ein Ereignis wird höchstens so weit angehoben, "
             "bis seine Spitze -1 dBFS erreicht. Ohne --target ist das Ziel der Median der "
             "Ereignisse. Schreibt das Ergebnis als AUSGABE.spj mit denselben Einträgen; "
             "DATEI.spj bleibt, wie sie ist, und eine vorhandene AUSGABE.spj wird nur mit "
             "--overwrite ersetzt. Ganz oder gar nicht: lässt sich ein Sound nicht "
             "messen oder anpassen, wird nichts geschrieben.\n"
             "Ausgabe, die Felder durch Tabulatoren getrennt:\n"
             "  ziel LUFS\n"
             "  sound SOUNDNUMMER NAME LUFS DBFS ÄNDERUNG_DB NEU_LUFS NEU_DBFS [begrenzt]"),
         .options = {{QStringLiteral("--target"), QStringLiteral("LUFS"),
                      QStringLiteral("die Ziel-Lautheit, von -70 bis 0")},
                     {QStringLiteral("--overwrite"), {}, QStringLiteral("ersetzt AUSGABE.spj")}},
         .minArguments = 2,
         .maxArguments = 2,
         .run = &runProjectNormalize},
    };
    return table;
}

namespace {

const QString kHelpLong = QStringLiteral("--help");
const QString kHelpShort = QStringLiteral("-h");

bool isHelp(const QString &argument)
{
    return argument == kHelpLong || argument == kHelpShort;
}

QStringList wordsOf(const CommandLineCommand &command)
{
    return command.name.split(QLatin1Char(' '));
}

// Two columns, the left one as wide as its longest entry.
void printColumns(QTextStream &out, const QList<std::pair<QString, QString>> &rows)
{
    qsizetype width = 0;
    for (const auto &row : rows)
        width = std::max(width, row.first.size());
    for (const auto &[left, right] : rows)
        out << "  " << left.leftJustified(width + 2) << right << '\n';
}

// Lines of a help text broken at spaces to fit a terminal; indented lines stay as they are.
QString wrapped(const QString &text)
{
    constexpr qsizetype width = 79;
    QStringList out;
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        QString rest = line;
        while (rest.size() > width && !rest.startsWith(QLatin1Char(' '))) {
            const qsizetype cut = rest.lastIndexOf(QLatin1Char(' '), width);
            if (cut <= 0)
                break;
            out.append(rest.left(cut));
            rest = rest.mid(cut + 1);
        }
        out.append(rest);
    }
    return out.join(QLatin1Char('\n'));
}

void printOverview(QTextStream &out, const QList<CommandLineCommand> &table, const QString &group)
{
    out << "Aufruf: klangor " << (group.isEmpty() ? QString() : group + QLatin1Char(' '))
        << "BEFEHL [OPTIONEN] ARGUMENTE...\n\n";
    if (group.isEmpty())
        out << "Ohne Argumente öffnet Klangor sein Fenster, mit DATEI.spj das Fenster mit\n"
               "diesem Sound Projekt. Mit einem Befehl arbeitet es auf der Kommandozeile, ohne\n"
               "Fenster und ohne grafische Sitzung.\n\n";
    out << "Befehle:\n";
    QList<std::pair<QString, QString>> rows;
    for (const CommandLineCommand &command : table) {
        if (group.isEmpty() || wordsOf(command).constFirst() == group)
            rows.append({command.name + QLatin1Char(' ') + command.arguments, command.summary});
    }
    printColumns(out, rows);
    out << "\nOptionen:\n";
    printColumns(out, {{QStringLiteral("-h, --help"),
                        QStringLiteral("zeigt diese Hilfe; nach einem Befehl dessen Hilfe")},
                       {QStringLiteral("--version"), QStringLiteral("zeigt die Version")}});
    out << "\nRückgabewert: 0 bei Erfolg, 1 wenn eine Datei die Prüfung nicht besteht oder\n"
           "nicht verarbeitet werden kann, 2 bei falschem Aufruf.\n";
}

void printCommandHelp(QTextStream &out, const CommandLineCommand &command)
{
    out << "Aufruf: klangor " << command.name << (command.options.isEmpty() ? "" : " [OPTIONEN]")
        << ' ' << command.arguments << "\n\n"
        << wrapped(command.description) << "\n\nOptionen:\n";
    QList<std::pair<QString, QString>> rows;
    for (const CommandOption &option : command.options)
        rows.append({option.valueName.isEmpty() ? option.name
                                                : option.name + QLatin1Char(' ') + option.valueName,
                     option.help});
    rows.append({QStringLiteral("-h, --help"), QStringLiteral("zeigt diese Hilfe")});
    printColumns(out, rows);
}

int usageError(Console &console, const QString &message, const QString &helpCall)
{
    console.err << "klangor: " << message << "\n„klangor " << helpCall
                << "“ zeigt, wie Klangor aufgerufen wird.\n";
    return ExitUsage;
}

// The entry whose words the arguments begin with; the longest wins.
const CommandLineCommand *findCommand(const QList<CommandLineCommand> &table,
                                      const QStringList &arguments)
{
    const CommandLineCommand *found = nullptr;
    for (const CommandLineCommand &command : table) {
        const QStringList words = wordsOf(command);
        if (arguments.mid(0, words.size()) == words &&
            (!found || words.size() > wordsOf(*found).size()))
            found = &command;
    }
    return found;
}

bool isGroup(const QList<CommandLineCommand> &table, const QString &word)
{
    return std::any_of(table.begin(), table.end(), [&](const CommandLineCommand &command) {
        const QStringList words = wordsOf(command);
        return words.size() > 1 && words.constFirst() == word;
    });
}

int runCommand(const CommandLineCommand &command, const QStringList &rest, Console &console)
{
    const QString helpCall = command.name + QLatin1Char(' ') + kHelpLong;
    CommandArguments parsed;
    bool optionsEnd = false;
    for (qsizetype i = 0; i < rest.size(); ++i) {
        const QString &argument = rest.at(i);
        if (optionsEnd || argument == QLatin1String("-") ||
            !argument.startsWith(QLatin1Char('-'))) {
            parsed.positional.append(argument);
            continue;
        }
        if (argument == QLatin1String("--")) {
            optionsEnd = true;
            continue;
        }
        if (isHelp(argument)) {
            printCommandHelp(console.out, command);
            return ExitSuccess;
        }
        const qsizetype equals =
            argument.startsWith(QLatin1String("--")) ? argument.indexOf(QLatin1Char('=')) : -1;
        const QString name = equals < 0 ? argument : argument.left(equals);
        const auto option =
            std::find_if(command.options.begin(), command.options.end(),
                         [&](const CommandOption &known) { return known.name == name; });
        if (option == command.options.end())
            return usageError(console,
                              QStringLiteral("Unbekannte Option „%1“ für „%2“.")
                                  .arg(outputField(name), command.name),
                              helpCall);
        QString value;
        if (option->valueName.isEmpty() && equals >= 0)
            return usageError(console, QStringLiteral("Die Option „%1“ hat keinen Wert.").arg(name),
                              helpCall);
        if (!option->valueName.isEmpty()) {
            if (equals >= 0)
                value = argument.mid(equals + 1);
            else if (i + 1 < rest.size())
                value = rest.at(++i);
            // An empty value ("-o ''") names nothing either.
            if (value.isEmpty())
                return usageError(console,
                                  QStringLiteral("Der Option „%1“ fehlt der Wert %2.")
                                      .arg(name, option->valueName),
                                  helpCall);
        }
        parsed.options.insert(name, value);
    }
    for (const CommandOption &option : command.options) {
        if (option.required && !parsed.has(option.name))
            return usageError(
                console,
                QStringLiteral("Es fehlt die Option „%1 %2“.").arg(option.name, option.valueName),
                helpCall);
    }
    const qsizetype count = parsed.positional.size();
    if (count < command.minArguments)
        return usageError(console,
                          QStringLiteral("Zu wenige Argumente für „%1“: erwartet wird %2.")
                              .arg(command.name, command.arguments),
                          helpCall);
    if (command.maxArguments >= 0 && count > command.maxArguments)
        return usageError(console,
                          QStringLiteral("Zu viele Argumente für „%1“: erwartet wird %2.")
                              .arg(command.name, command.arguments),
                          helpCall);
    return command.run(parsed, console);
}

// Qt's own options that take a value; a session manager restarts the window with -session.
const QStringList kQtValueOptions =
    QStringLiteral("-platform -platformpluginpath -platformtheme -plugin -session -style "
                   "-stylesheet -display -geometry -qwindowgeometry -title -qwindowtitle -icon "
                   "-qwindowicon -name -font -fn -bg -fg -btn -visual -im -inputstyle")
        .split(QLatin1Char(' '));
const QStringList kQtSwitches =
    QStringLiteral("-reverse -nograb -dograb -sync -widgetcount").split(QLatin1Char(' '));

} // namespace

std::optional<QString> windowProject(const QStringList &arguments)
{
    QString project;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (kQtSwitches.contains(argument))
            continue;
        if (kQtValueOptions.contains(argument) && i + 1 < arguments.size()) {
            ++i;
            continue;
        }
        if (!project.isEmpty() || !argument.endsWith(QStringLiteral(".spj"), Qt::CaseInsensitive))
            return std::nullopt;
        project = argument;
    }
    return project;
}

namespace {

// layout: tabs and line breaks stay, as does a backslash (no field is to be read back).
QString escaped(const QString &text, bool layout)
{
    QString field;
    field.reserve(text.size());
    for (const QChar c : text) {
        if (layout && (c == QLatin1Char('\t') || c == QLatin1Char('\n')))
            field += c;
        else if (c == QLatin1Char('\\'))
            field += layout ? QStringLiteral("\\") : QStringLiteral("\\\\");
        else if (c == QLatin1Char('\t'))
            field += QStringLiteral("\\t");
        else if (c == QLatin1Char('\n'))
            field += QStringLiteral("\\n");
        else if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format)
            field += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            field += c;
    }
    return field;
}

} // namespace

QString outputField(const QString &text)
{
    return escaped(text, false);
}

QString terminalText(const QString &text)
{
    return escaped(text, true);
}

TerminalDevice::TerminalDevice(QIODevice &target) : m_target(target)
{
    open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}

qint64 TerminalDevice::writeData(const char *data, qint64 size)
{
    // The decoder keeps a character split between two writes for the next one.
    const QByteArray text = terminalText(m_decoder.decode(QByteArrayView(data, size))).toUtf8();
    return m_target.write(text) == text.size() ? size : -1;
}

int runCommandLine(const QList<CommandLineCommand> &table, const QStringList &arguments,
                   Console &console)
{
    const QString first = arguments.value(0);
    if (isHelp(first)) {
        printOverview(console.out, table, {});
        return ExitSuccess;
    }
    if (first == QLatin1String("--version")) {
        console.out << "Klangor " << programVersion() << '\n';
        return ExitSuccess;
    }
    if (const CommandLineCommand *command = findCommand(table, arguments))
        return runCommand(*command, arguments.mid(wordsOf(*command).size()), console);

    const QString help = kHelpLong;
    if (arguments.isEmpty())
        return usageError(console, QStringLiteral("Es fehlt ein Befehl."), help);
    if (isGroup(table, first)) {
        const QString groupHelp = first + QLatin1Char(' ') + kHelpLong;
        if (isHelp(arguments.value(1))) {
            printOverview(console.out, table, first);
            return ExitSuccess;
        }
        if (arguments.size() < 2)
            return usageError(console,
                              QStringLiteral("Dem Befehl „%1“ fehlt ein Unterbefehl.").arg(first),
                              groupHelp);
        return usageError(
            console,
            QStringLiteral("Unbekannter Befehl „%1 %2“.").arg(first, outputField(arguments.at(1))),
            groupHelp);
    }
    if (first.startsWith(QLatin1Char('-')))
        return usageError(console,
                          QStringLiteral("Unbekannte Option „%1“.").arg(outputField(first)), help);
    return usageError(console, QStringLiteral("Unbekannter Befehl „%1“.").arg(outputField(first)),
                      help);
}

int runCommandLine(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QFile standardOut, standardError;
    standardOut.open(stdout, QIODevice::WriteOnly | QIODevice::Unbuffered);
    standardError.open(stderr, QIODevice::WriteOnly | QIODevice::Unbuffered);
    TerminalDevice outDevice(standardOut), errDevice(standardError);
    QTextStream out(&outDevice);
    QTextStream err(&errDevice);
    Console console{out, err};
    return runCommandLine(commandLineCommands(), QCoreApplication::arguments().mid(1), console);
}

} // namespace klangor
