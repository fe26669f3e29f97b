// SPDX-License-Identifier: MIT
// The decoders of what pluggables give: each of them gets the whole input.
#include "../fuzztarget.h"
#include "../targets.h"

#include <brixlib/protocol/pluggables/spluggablejson.h>
#include <brixlib/protocol/pluggables/spluggablestring.h>
#include <brixlib/protocol/pluggables/spluggablestringlist.h>

using namespace Talverine;

namespace Fuzz {

namespace {

bool readsText(const QByteArray &input)
{
    const QString text = SPluggableString::byteArrayToString(input);
    const QByteArray bytes = SPluggableString::stringToByteArray(text);
    require(SPluggableString::byteArrayToString(bytes) == text, "a text changes");
    return !text.isEmpty();
}

bool readsTexts(const QByteArray &input)
{
    const QList<QString> texts = SPluggableStringList::byteArrayToStringList(input);
    require(texts.size() <= input.size() / 4, "more texts than bytes");
    const QByteArray bytes = SPluggableStringList::stringListToByteArray(texts);
    require(SPluggableStringList::byteArrayToStringList(bytes) == texts, "a list of texts changes");
    return !texts.isEmpty();
}

bool readsDocument(const QByteArray &input)
{
    const QJsonDocument document = SPluggableJson::byteArrayToDocument(input);
    const QByteArray bytes = SPluggableJson::documentToByteArray(document);
    require(document.isNull() == bytes.isEmpty(), "a document vanishes");
    return !document.isNull();
}

} // namespace

bool pluggables(const QByteArray &input)
{
    const int readers = readsText(input) + readsTexts(input) + readsDocument(input);
    require(readers <= 1, "bytes are read in two ways");
    return readers == 1;
}

} // namespace Fuzz
