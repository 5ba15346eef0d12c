// SPDX-License-Identifier: BSD-3-Clause
// A path and an object: {"path": "a.*[0]", "root": {...}}. The paths that the one expands to in the other, and what
// they lead to, must be those of the model.
#include <Core/json_path.h>

#include <expect.h>
#include <json_input.h>
#include <json_path_model.h>

using namespace Fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QJsonObject input = jsonInput(data, size);
    const QString path = input.value(QLatin1String("path")).toString();
    const QJsonObject root = input.value(QLatin1String("root")).toObject();
    takeWarnings();

    expectEqual("Value at the path", Core::JsonPath::value(root, path), valueAt(root, path));

    const QStringList paths = Core::JsonPath::expand(root, path);
    const auto expected = matches(root, path);
    const bool isAmbiguous = hasAmbiguousKeys(root);
    expectEqual("Number of paths", paths.size(), expected.size());
    for (int i = 0; i < paths.size(); ++i) {
        const QJsonValue value = Core::JsonPath::value(root, paths[i]);
        expectEqual("Value at an expanded path", value, valueAt(root, paths[i]));
        expectEqual("Expanded path", paths[i], expected[i].first);
        if (!isAmbiguous)
            expectEqual("Value at what was matched", value, expected[i].second);
    }
    expectWarnings({});
    return 0;
}
