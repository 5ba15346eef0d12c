// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

struct Invocation;

/// The kind of a value on the command line. The parser checks it, and the shells complete it.
enum class Kind {
    None, ///< An option without a value.
    Text,
    Integer,
    Count, ///< A positive integer.
    Integers, ///< Such as "1,2,3".
    Seconds,
    Date,
    File,
    Pair, ///< KEY=VALUE or KEY:=JSON.
    Intent,
    Application,
    Task,
    CommandLine, ///< A program with its arguments, after "--".
    Arguments, ///< Arguments after "--".
};

struct Argument
{
    const char *name;
    Kind kind;
    const char *help;
    bool isOptional = false;
    bool isRepeated = false;
};

struct Option
{
    const char *name;
    const char *valueName;
    const char *help;
    Kind kind;
    bool isRepeated = false;
};

struct ExitCode
{
    int code;
    const char *help;
};

/// A view of a constant array.
template<typename T>
class View
{
public:
    constexpr View() = default;
    template<std::size_t Size>
    constexpr View(const T (&array)[Size]) : m_begin(&array[0]), m_end(&array[0] + Size)
    { }

    constexpr const T *begin() const { return m_begin; }
    constexpr const T *end() const { return m_end; }

private:
    const T *m_begin = nullptr;
    const T *m_end = nullptr;
};

struct Command
{
    const char *name; ///< One word or two: "invoke", "task start".
    const char *summary; ///< A sentence.
    const char *description; ///< Paragraphs, separated by empty lines.
    const char *example;
    View<Argument> arguments;
    View<Option> options;
    int (*run)(const Invocation &invocation); ///< Returns the exit code.
};

/// The table of all commands. The parser, --help, the manual page and the completions are made from it.
extern const View<Command> Commands;
/// The options of each command.
extern const View<Option> CommonOptions;
extern const View<ExitCode> ExitCodes;

constexpr int UsageError = 64;
