// SPDX-License-Identifier: BSD-3-Clause
// The driver of the soak. It uses the library for a given time, on the bus of the stand-in that has started this
// program. It checks that each outcome is correct, and that memory and file descriptors do not grow.
#include "expected_warnings.h"
#include "intent_load.h"
#include "notice_load.h"
#include "process_figures.h"
#include "task_load.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QTextStream>

#include <algorithm>
#include <array>
#include <limits>
#include <unistd.h>

namespace {

const double WarmUp = 0.1; // part of the time
const double Window = 0.1; // part of the time for each median of the memory
const qint64 MostGrowth = 2048; // KiB
const int SampleInterval = 200; // milliseconds
const int RestTime = 1000; // milliseconds; the lowest number of descriptors in this time counts
const int LongestSettling = 30000; // milliseconds

struct Sample
{
    double seconds;
    ProcessFigures driver;
    ProcessFigures standIn;
};

/// One of the two measured processes.
struct Watched
{
    QString name;
    ProcessFigures Sample::*figures;
};

void say(const QString &text)
{
    QTextStream(stdout) << text << Qt::endl;
}

qint64 median(QVector<qint64> values)
{
    if (values.isEmpty())
        return 0;
    const auto middle = values.begin() + values.size() / 2;
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// One run: a warm-up, a pause, the rest of the work, and another pause.
class Soak : public QObject
{
    Q_OBJECT
public:
    Soak(double minutes, quint32 seed, const QString &samplesFile, Findings &findings)
        : m_seconds(minutes * 60), m_samplesFile(samplesFile), m_findings(findings), m_files(seed),
          m_intents(seed, m_files, findings), m_tasks(seed + 1, findings), m_notices(seed + 2, findings)
    {
        m_samples.reserve(int(m_seconds * 1000 / SampleInterval * 2)); // allocated now: the samples must not grow
        connect(&m_timer, &QTimer::timeout, this, &Soak::onTimer);
        m_timer.start(SampleInterval);
        m_clock.start();
        work();
    }

private:
    enum class Phase { Work, Settling, Rest };

    void onTimer();
    void work();
    void rest();
    void settle();
    void finish();
    void compareDescriptors(const Watched &watched);
    void compareMemory(const Watched &watched);
    QVector<qint64> memory(const Watched &watched, double from) const;
    int descriptorsAtRest(const Watched &watched, double since) const;
    void writeSamples();
    void report() const;

    double seconds() const { return double(m_clock.elapsed()) / 1000; }

    const double m_seconds;
    const QString m_samplesFile;
    Findings &m_findings;
    const SharedFiles m_files;
    IntentLoad m_intents;
    TaskLoad m_tasks;
    NoticeLoad m_notices;
    const std::array<Load *, 3> m_loads{&m_intents, &m_tasks, &m_notices};
    QTimer m_timer;
    QElapsedTimer m_clock;
    Phase m_phase = Phase::Work;
    bool m_isWarm = false;
    // All times are in seconds.
    double m_phaseBegin = 0;
    double m_firstRest = 0;
    double m_workBegin = 0; ///< The begin of the work after the warm-up.
    double m_workEnd = 0;
    double m_worked = 0;
    QVector<Sample> m_samples;
    Rows m_figures;
};

void Soak::onTimer()
{
    m_samples.append({seconds(), ProcessFigures::of(::getpid()), ProcessFigures::of(::getppid())});
    const double passed = seconds() - m_phaseBegin;
    switch (m_phase) {
    case Phase::Work:
        if (passed >= m_seconds * (m_isWarm ? 1 - WarmUp : WarmUp))
            rest();
        break;
    case Phase::Settling:
        settle();
        break;
    case Phase::Rest:
        if (passed < double(RestTime) / 1000)
            break;
        if (m_isWarm) {
            finish();
        } else {
            m_isWarm = true;
            m_firstRest = m_phaseBegin;
            work();
            m_workBegin = m_phaseBegin;
        }
        break;
    }
}

void Soak::work()
{
    m_phase = Phase::Work;
    m_phaseBegin = seconds();
    for (Load *load : m_loads)
        load->start();
}

void Soak::rest()
{
    m_workEnd = seconds();
    m_worked += m_workEnd - m_phaseBegin;
    m_phase = Phase::Settling;
    m_phaseBegin = m_workEnd;
    for (Load *load : m_loads)
        load->stop();
}

/// Waits until all work is finished and all applications run.
void Soak::settle()
{
    QStringList outstanding;
    for (Load *load : m_loads)
        outstanding << load->outstanding();
    outstanding.removeAll(QString());
    if (outstanding.isEmpty()) {
        m_phase = Phase::Rest;
        m_phaseBegin = seconds();
    } else if (seconds() - m_phaseBegin > double(LongestSettling) / 1000) {
        m_findings.add(QString("the end of all work within %1 s").arg(LongestSettling / 1000),
                       "outstanding: " + outstanding.join("; "));
        finish();
    } else if (m_intents.outstanding().isEmpty() && !m_notices.outstanding().isEmpty()) {
        m_intents.wakeApplications();
    }
}

void Soak::finish()
{
    m_timer.stop();
    m_figures << qMakePair(QString("seconds of work"), QString::number(m_worked, 'f', 1));
    for (Load *load : m_loads)
        m_figures << load->figures(m_worked);
    if (m_phase == Phase::Rest) {
        for (const Watched &watched : {Watched{"driver", &Sample::driver}, Watched{"stand-in", &Sample::standIn}}) {
            compareDescriptors(watched);
            compareMemory(watched);
        }
    }
    writeSamples();
    report();
}

void Soak::compareDescriptors(const Watched &watched)
{
    const int before = descriptorsAtRest(watched, m_firstRest);
    const int after = descriptorsAtRest(watched, m_phaseBegin);
    m_figures << qMakePair(QString("descriptors of the %1, at rest").arg(watched.name),
                           QString("%1, then %2").arg(before).arg(after));
    if (after > before)
        m_findings.add(
            QString("at most %2 open descriptors in the %1, as after the warm-up").arg(watched.name).arg(before),
            QString::number(after));
}

void Soak::compareMemory(const Watched &watched)
{
    const qint64 before = median(memory(watched, m_workBegin));
    const qint64 after = median(memory(watched, m_workEnd - m_seconds * Window));
    m_figures << qMakePair(QString("memory of the %1").arg(watched.name),
                           QString("%1 KiB, then %2 KiB").arg(before).arg(after));
    if (after - before > MostGrowth)
        m_findings.add(QString("at most %2 KiB more memory in the %1").arg(watched.name).arg(MostGrowth),
                       QString("%1 KiB").arg(after - before));
}

/// Returns the samples of one window that begins at \a from.
QVector<qint64> Soak::memory(const Watched &watched, double from) const
{
    QVector<qint64> values;
    for (const Sample &sample : m_samples) {
        if (sample.seconds >= from && sample.seconds <= from + m_seconds * Window)
            values << (sample.*watched.figures).memory;
    }
    return values;
}

int Soak::descriptorsAtRest(const Watched &watched, double since) const
{
    int fewest = std::numeric_limits<int>::max();
    for (const Sample &sample : m_samples) {
        if (sample.seconds >= since && sample.seconds <= since + double(RestTime) / 1000)
            fewest = std::min(fewest, (sample.*watched.figures).descriptors);
    }
    return fewest;
}

void Soak::writeSamples()
{
    QFile file(m_samplesFile);
    if (!file.open(QIODevice::WriteOnly))
        qFatal("%s cannot be written: %s", qUtf8Printable(m_samplesFile), qUtf8Printable(file.errorString()));
    QTextStream stream(&file);
    stream << "seconds\tdriver MiB\tstand-in MiB\tdriver descriptors\tstand-in descriptors\n";
    for (const Sample &sample : qAsConst(m_samples))
        stream << sample.seconds << '\t' << double(sample.driver.memory) / 1024 << '\t'
               << double(sample.standIn.memory) / 1024 << '\t' << sample.driver.descriptors << '\t'
               << sample.standIn.descriptors << '\n';
}

void Soak::report() const
{
    for (const auto &[what, value] : m_figures)
        say(QString("%1 %2").arg(what, -42).arg(value, 20));
    const QStringList lines = m_findings.lines();
    for (const QString &line : lines)
        say("FAILED: " + line);
    QCoreApplication::exit(lines.isEmpty() ? EXIT_SUCCESS : EXIT_FAILURE);
}

/// Every warning is a finding, except the warnings that the soak itself causes.
Findings *warnings = nullptr;

void onWarning(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (isExpectedWarning(text))
        return;
    warnings->add("no warnings", text);
    if (type == QtFatalMsg)
        QTextStream(stderr) << "corvane-soak: " << text << Qt::endl;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 4) {
        QTextStream(stderr) << "Usage: corvane-soak MINUTES SEED SAMPLES-FILE" << Qt::endl;
        return EXIT_FAILURE;
    }
    Findings findings;
    warnings = &findings;
    qInstallMessageHandler(onWarning);
    const Soak soak(arguments.at(1).toDouble(), arguments.at(2).toUInt(), arguments.at(3), findings);
    return QCoreApplication::exec();
}

#include "main.moc"
