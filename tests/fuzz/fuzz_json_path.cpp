// SPDX-License-Identifier: BSD-3-Clause
// Expands and reads a JSON path. The input is {"path": "a.*[0]", "root": {...}}. The expanded paths and their values
// must agree with the model. Reading the path element by element must give the same value.
#include <Core/json_path.h>

#include <expect.h>
#include <json_input.h>
#include <json_path_model.h>
#include <target.h>

#include <QtCore/QJsonArray>

using namespace Fuzz;

namespace {

/// Returns the value at the path, element by element with nextPathElement().
QJsonValue valueByElements(const QJsonObject &root, QString path)
{
    QJsonValue current = root;
    QString key;
    int index = 0;
    while (const Core::Element element = Core::nextPathElement(path, &key, &index)) {
        const QJsonArray array = current.toArray();
        if (element == Core::JsonPath::Key)
            current = current.toObject().contains(key) ? current.toObject().value(key) : QJsonValue();
        else if (element == Core::JsonPath::Index)
            current = array.at(index < 0 ? index + array.size() : index);
    }
    return current;
}

} // namespace

void Fuzz::runInput(const std::uint8_t *data, std::size_t size)
{
    const QJsonObject input = jsonInput(data, size);
    const QString path = input.value("path").toString();
    const QJsonObject root = input.value("root").toObject();
    takeWarnings();

    expectEqual("Value at the path", Core::JsonPath::value(root, path), valueAt(root, path));
    expectEqual("Value at the elements", valueByElements(root, path), valueAt(root, path));

    const QStringList paths = Core::JsonPath::expand(root, path);
    const auto expected = matches(root, path);
    const bool isAmbiguous = hasAmbiguousKeys(root);
    expectEqual("Number of paths", paths.size(), expected.size());
    for (int i = 0; i < paths.size(); ++i) {
        const QJsonValue value = Core::JsonPath::value(root, paths[i]);
        expectEqual("Value at an expanded path", value, valueAt(root, paths[i]));
        expectEqual("Expanded path", paths[i], expected[i].first);
        if (!isAmbiguous)
            expectEqual("Value of the match", value, expected[i].second);
    }
    expectWarnings({});
}
