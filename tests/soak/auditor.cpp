// SPDX-License-Identifier: BSD-3-Clause
#include "auditor.h"

#include <DBus/names.h>

#include <QtCore/QSocketNotifier>

#include <cstring>
#include <fcntl.h>
#include <systemd/sd-bus.h>

namespace Names = Corvane::Names;

namespace {

void require(int result, const char *what)
{
    if (result < 0)
        qFatal("The bus cannot be watched: %s: %s", what, strerror(-result));
}

} // namespace

Auditor::Auditor(const QStringList &intents, const SharedFiles &files, Findings &findings)
    : m_files(files), m_findings(findings)
{
    require(sd_bus_new(&m_bus), "sd_bus_new");
    require(sd_bus_set_address(m_bus, qgetenv("DBUS_SESSION_BUS_ADDRESS").constData()), "sd_bus_set_address");
    require(sd_bus_set_bus_client(m_bus, 1), "sd_bus_set_bus_client");
    require(sd_bus_set_monitor(m_bus, 1), "sd_bus_set_monitor");
    require(sd_bus_negotiate_fds(m_bus, 1), "sd_bus_negotiate_fds");
    require(sd_bus_start(m_bus), "sd_bus_start");

    sd_bus_creds *service = nullptr;
    const char *serviceConnection = nullptr;
    require(sd_bus_get_name_creds(m_bus, Names::ServiceRoot.data(), SD_BUS_CREDS_UNIQUE_NAME, &service),
            "sd_bus_get_name_creds");
    require(sd_bus_creds_get_unique_name(service, &serviceConnection), "sd_bus_creds_get_unique_name");

    sd_bus_message *call = nullptr;
    require(sd_bus_message_new_method_call(m_bus, &call, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                           "org.freedesktop.DBus.Monitoring", "BecomeMonitor"),
            "sd_bus_message_new_method_call");
    require(sd_bus_message_open_container(call, 'a', "s"), "sd_bus_message_open_container");
    const QString requests = "type='method_call',interface='%1',member='InvokeIntent',arg0='%2'";
    for (const QString &intent : intents) {
        const QByteArray rule = requests.arg(Names::Intents.interface, intent).toUtf8();
        require(sd_bus_message_append(call, "s", rule.constData()), "sd_bus_message_append");
    }
    const QByteArray replies = QByteArray("type='method_return',destination='") + serviceConnection + '\'';
    require(sd_bus_message_append(call, "s", replies.constData()), "sd_bus_message_append");
    require(sd_bus_message_close_container(call), "sd_bus_message_close_container");
    require(sd_bus_message_append(call, "u", 0U), "sd_bus_message_append");
    require(sd_bus_call(m_bus, call, 0, nullptr, nullptr), "BecomeMonitor");
    sd_bus_message_unref(call);
    sd_bus_creds_unref(service);

    m_notifier = std::make_unique<QSocketNotifier>(sd_bus_get_fd(m_bus), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &Auditor::read);
}

Auditor::~Auditor()
{
    m_notifier.reset();
    sd_bus_close_unref(m_bus);
}

void Auditor::onSent(int id)
{
    m_sent.insert(id);
}

void Auditor::onAnswered(int id)
{
    if (!m_early.remove(id))
        m_answered.insert(id);
}

void Auditor::onDropped(int id)
{
    if (!m_early.remove(id))
        m_dropped.insert(id);
}

Rows Auditor::figures() const
{
    return {{"descriptors compared, with intents", QString::number(m_requests)},
            {"descriptors compared, with replies", QString::number(m_replies)}};
}

void Auditor::read()
{
    for (;;) {
        sd_bus_message *message = nullptr;
        const int result = sd_bus_process(m_bus, &message);
        require(result, "sd_bus_process");
        if (message)
            check(message);
        sd_bus_message_unref(message);
        if (result == 0)
            return;
    }
}

void Auditor::check(sd_bus_message *message)
{
    Content content;
    if (sd_bus_message_has_signature(message, "sa{sv}a{sv}")) { // an intent: its name, hints, and parameters
        require(sd_bus_message_skip(message, "s"), "sd_bus_message_skip");
        readMap(message, content);
        readMap(message, content);
        checkDescriptors(content);
        ++m_requests;
        if (!m_sent.remove(content.id))
            m_findings.add("each intent with a file once on the bus", QString("intent %1 again").arg(content.id));
    } else if (sd_bus_message_has_signature(message, "a{sv}a{sv}")) { // a reply: its result, and files
        readMap(message, content);
        readMap(message, content);
        if (content.file.isEmpty())
            return;
        checkDescriptors(content);
        ++m_replies;
        if (!m_answered.remove(content.id) && !m_dropped.remove(content.id)) {
            if (m_early.contains(content.id))
                m_findings.add("each reply with a file once on the bus",
                               QString("the reply to intent %1 again").arg(content.id));
            m_early.insert(content.id);
        }
    }
}

void Auditor::checkDescriptors(const Content &content)
{
    const bool isToRead = content.readDescriptors.size() == 1 && content.writeDescriptors.isEmpty();
    const bool isToWrite = content.writeDescriptors.size() == 1 && content.readDescriptors.isEmpty();
    if ((isToRead && m_files.isThat(content.readDescriptors.first(), content.file, O_RDONLY))
        || (isToWrite && m_files.isThat(content.writeDescriptors.first(), content.file, O_RDWR)))
        return;
    m_findings.add("one descriptor of the file that a message names, in the selected mode",
                   QString("%1 to read and %2 to write in a message with %3")
                       .arg(content.readDescriptors.size())
                       .arg(content.writeDescriptors.size())
                       .arg(content.file));
}

void Auditor::readMap(sd_bus_message *message, Content &content)
{
    const auto readDescriptors = [message](QVector<int> &descriptors) {
        require(sd_bus_message_enter_container(message, 'v', "ah"), "an array of descriptors");
        require(sd_bus_message_enter_container(message, 'a', "h"), "an array of descriptors");
        int descriptor = -1;
        while (sd_bus_message_read(message, "h", &descriptor) > 0)
            descriptors.append(descriptor);
        require(sd_bus_message_exit_container(message), "an array of descriptors");
        require(sd_bus_message_exit_container(message), "an array of descriptors");
    };

    require(sd_bus_message_enter_container(message, 'a', "{sv}"), "a map");
    while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
        const char *key = nullptr;
        require(sd_bus_message_read(message, "s", &key), "a key");
        if (std::strcmp(key, "readFds") == 0) {
            readDescriptors(content.readDescriptors);
        } else if (std::strcmp(key, "writeFds") == 0) {
            readDescriptors(content.writeDescriptors);
        } else if (std::strcmp(key, "id") == 0) {
            double id = -1;
            require(sd_bus_message_read(message, "v", "d", &id), "an id");
            content.id = int(id);
        } else if (std::strcmp(key, "read") == 0 || std::strcmp(key, "write") == 0) {
            const char *file = nullptr;
            require(sd_bus_message_read(message, "v", "s", &file), "the name of a file");
            content.file = QString::fromUtf8(file);
        } else {
            require(sd_bus_message_skip(message, "v"), "a value");
        }
        require(sd_bus_message_exit_container(message), "an entry");
    }
    require(sd_bus_message_exit_container(message), "a map");
}
