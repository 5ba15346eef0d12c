// SPDX-License-Identifier: BSD-3-Clause
// The completions of bash and zsh.
#include "generate.h"

#include <QtCore/QStringList>

namespace Generate {

namespace {

const char BashTemplate[] = R"--(# bash completion of corvane

_corvane() {
    local current=${COMP_WORDS[COMP_CWORD]} first=2 command=${COMP_WORDS[1]} options='' rest=none kind='' i
    local -A values=()
    local -a arguments=()
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W 'WORDS --help --version' -- "$current")
        return
    fi
    case $command in
GROUPS    esac
    if ((first == 3)); then
        if ((COMP_CWORD == 2)); then
            mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
            return
        fi
        command+=" ${COMP_WORDS[2]}"
    fi
    case $command in
COMMANDS    *) return ;;
    esac

    local index=0
    for ((i = first; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        --)
            [[ $rest == none ]] && continue
            [[ $rest == command ]] && ((i + 1 == COMP_CWORD)) && kind=programs || kind=file
            break
            ;;
        -*)
            # In COMP_WORDS, "--option=value" is three words.
            if [[ -n ${values[${COMP_WORDS[i]}]} ]]; then
                kind=${values[${COMP_WORDS[i]}]}
                ((++i))
                [[ ${COMP_WORDS[i]} == '=' ]] && ((i < COMP_CWORD)) && ((++i))
                ((i < COMP_CWORD)) && kind=''
                [[ $current == '=' ]] && current=''
            fi
            ;;
        *) ((++index)) ;;
        esac
    done
    if [[ -z $kind && $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
        return
    fi
    [[ -n $kind ]] || kind=${arguments[index]}
    case $kind in
    file) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    programs) mapfile -t COMPREPLY < <(compgen -c -- "$current") ;;
    applications | intents | tasks)
        local IFS=$'\n' ids
        ids=$(corvane-standin list "$kind" 2>/dev/null)
        [[ $kind == tasks ]] && ids=$(sed 's/.*\.task_//' <<<"$ids") # without the application
        mapfile -t COMPREPLY < <(compgen -W "$ids" -- "$current")
        ;;
    esac
}
complete -F _corvane corvane
)--";

const char ZshTemplate[] = R"--(#compdef corvane

_corvane_list() {
    # _arguments inserts options of compadd before the kind.
    local -a ids
    ids=(${(f)"$(corvane-standin list $@[-1] 2>/dev/null)"})
    [[ $@[-1] == tasks ]] && ids=(${ids##*.task_}) # without the application
    compadd "${@[1,-2]}" -a ids
}

# Completes the program and its arguments after "--".
_corvane_command() {
    if ((CURRENT == 1)); then
        _command_names -e
    else
        _normal
    fi
}

_corvane() {
    local command=$words[2]
    if ((CURRENT == 2)); then
        compadd -- WORDS --help --version
        return
    fi
    shift words
    ((CURRENT--))
    case $command in
GROUPS    esac
    case $command in
COMMANDS    esac
}

_corvane "$@"
)--";

/// Returns the first words of all commands, or the second words of the commands with this first word.
QStringList words(const QString &first = {})
{
    QStringList result;
    for (const Command &command : Commands) {
        const QStringList name = QString::fromLatin1(command.name).split(QLatin1Char(' '));
        const QString word = first.isEmpty() ? name.first() : name.first() == first ? name.value(1) : QString();
        if (!word.isEmpty() && !result.contains(word))
            result.append(word);
    }
    return result;
}

/// Returns the first words that need a second one.
QStringList groups()
{
    QStringList result;
    const QStringList firstWords = words();
    for (const QString &first : firstWords) {
        if (!words(first).isEmpty())
            result.append(first);
    }
    return result;
}

/// Returns the name by which the completions know the values of a kind.
QString nameOf(Kind kind)
{
    switch (kind) {
    case Kind::File:
        return QStringLiteral("file");
    case Kind::Intent:
        return QStringLiteral("intents");
    case Kind::Application:
        return QStringLiteral("applications");
    case Kind::Task:
        return QStringLiteral("tasks");
    case Kind::CommandLine:
        return QStringLiteral("command");
    default:
        return QStringLiteral("nothing");
    }
}

/// Returns the action of zsh that completes the values of a kind.
QString actionOf(Kind kind)
{
    switch (kind) {
    case Kind::File:
        return QStringLiteral("_files");
    case Kind::Intent:
    case Kind::Application:
    case Kind::Task:
        return QStringLiteral("_corvane_list ") + nameOf(kind);
    default:
        return QStringLiteral(" "); // nothing
    }
}

/// Returns the text inside single quotes of a shell.
QString quoted(QString text)
{
    return QLatin1Char('\'') + text.replace(QLatin1Char('\''), QStringLiteral("'\\''")) + QLatin1Char('\'');
}

/// Escapes the characters that are special in a specification of zsh's _arguments.
QString specText(const char *text)
{
    QString result = QString::fromLatin1(text);
    for (const char c : {'\\', '[', ']', ':'})
        result.replace(QLatin1Char(c), QLatin1Char('\\') + QString(QLatin1Char(c)));
    return result;
}

/// Returns the case of a command in the function of bash.
QString bashCase(const Command &command)
{
    QStringList options;
    QString values;
    for (const View<Option> &view : {command.options, CommonOptions}) {
        for (const Option &option : view) {
            const QString name = QLatin1String("--") + QLatin1String(option.name);
            options.append(name);
            if (option.valueName)
                values += QStringLiteral(" [%1]=%2").arg(name, nameOf(option.kind));
        }
    }
    QStringList kinds;
    QString rest = QStringLiteral("none");
    for (const Argument &argument : command.arguments) {
        if (argument.kind == Kind::CommandLine || argument.kind == Kind::Arguments)
            rest = nameOf(argument.kind);
        else
            kinds.append(nameOf(argument.kind));
    }
    return QStringLiteral("    %1)\n        options='%2'\n        values=(%3)\n        arguments=(%4)\n        "
                          "rest=%5\n        ;;\n")
        .arg(quoted(QString::fromLatin1(command.name)), options.join(QLatin1Char(' ')), values.trimmed(),
             kinds.join(QLatin1Char(' ')), rest);
}

/// Returns the case of a command in the function of zsh.
QString zshCase(const Command &command)
{
    QStringList specs;
    for (const View<Option> &view : {command.options, CommonOptions}) {
        for (const Option &option : view) {
            QString spec =
                QLatin1String(option.isRepeated ? "*" : "") + QLatin1String("--") + QLatin1String(option.name);
            spec += QLatin1String(option.valueName ? "=" : "") + QLatin1Char('[') + specText(option.help)
                + QLatin1Char(']');
            if (option.valueName)
                spec += QLatin1Char(':') + specText(option.valueName) + QLatin1Char(':') + actionOf(option.kind);
            specs.append(quoted(spec));
        }
    }
    for (const Argument &argument : command.arguments) {
        if (argument.kind == Kind::CommandLine)
            specs.append(quoted(QStringLiteral("*:: :_corvane_command")));
        else if (argument.kind != Kind::Arguments)
            specs.append(quoted(QLatin1String(argument.isRepeated       ? "*:"
                                                  : argument.isOptional ? "::"
                                                                        : ":")
                                + specText(argument.name) + QLatin1Char(':') + actionOf(argument.kind)));
    }
    return QStringLiteral("    %1)\n        _arguments \\\n            %2\n        ;;\n")
        .arg(quoted(QString::fromLatin1(command.name)), specs.join(QStringLiteral(" \\\n            ")));
}

QString forEachCommand(QString (*text)(const Command &command))
{
    QString result;
    for (const Command &command : Commands)
        result += text(command);
    return result;
}

} // namespace

QString bashCompletions()
{
    QString text = QString::fromLatin1(BashTemplate);
    QString groupCases;
    const QStringList groupNames = groups();
    for (const QString &group : groupNames)
        groupCases +=
            QStringLiteral("    %1) first=3 options='%2' ;;\n").arg(group, words(group).join(QLatin1Char(' ')));
    text.replace(QStringLiteral("WORDS --help"), words().join(QLatin1Char(' ')) + QStringLiteral(" --help"));
    text.replace(QStringLiteral("GROUPS"), groupCases);
    return text.replace(QStringLiteral("COMMANDS"), forEachCommand(bashCase));
}

QString zshCompletions()
{
    QString text = QString::fromLatin1(ZshTemplate);
    QString groupCases;
    const QStringList groupNames = groups();
    for (const QString &group : groupNames)
        groupCases +=
            QStringLiteral(
                "    %1)\n        if ((CURRENT == 2)); then\n            compadd %2\n            return\n"
                "        fi\n        command+=\" $words[2]\"\n        shift words\n        ((CURRENT--))\n        ;;\n")
                .arg(group, words(group).join(QLatin1Char(' ')));
    text.replace(QStringLiteral("WORDS --help"), words().join(QLatin1Char(' ')) + QStringLiteral(" --help"));
    text.replace(QStringLiteral("GROUPS"), groupCases);
    return text.replace(QStringLiteral("COMMANDS"), forEachCommand(zshCase));
}

} // namespace Generate
