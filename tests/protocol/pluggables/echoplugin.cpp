// SPDX-License-Identifier: MIT
// A plug-in library with one pluggable, as an application would load it.
#include <brixlib/protocol/pluggables/spluggable.h>

class EchoPlugin final : public Talverine::SPluggable
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "Talverine.SPluggable/1.1")

public:
    bool execute(const QByteArray &params, QByteArray &output,
                 const Talverine::SPluggableEnvironment &) override
    {
        output = params;
        return !params.isEmpty();
    }
};

#include "echoplugin.moc"
