/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/info_command.h"

#include "tools/exit_code.h"
#include "tools/file.h"
#include "tools/stream_info.h"
#include "tools/stream_source.h"

namespace mp4v {

int Info(const InfoOptions& options) {
    InstallSignalHandlers();
    StreamSource source(options.input);
    Session session({.headers_only = true});
    StreamInfo info;
    const auto take = [&](const Session::Results& results) {
        for (const Result& result : results) info.Add(result);
    };
    for (std::span<const uint8_t> bytes; !(bytes = source.Read()).empty();) take(session.Feed(bytes));
    if (!Interrupted()) take(session.Finish());
    info.SetProblem(source.problem());

    const std::string name = options.input == "-" ? "standard input" : options.input;
    const std::string kind = NameOf(source.container());
    WriteToStandardOutput(options.json ? info.Json(name, kind) : info.Text(name, kind));
    if (Interrupted()) return kExitInterrupted;
    return info.supported() ? kExitGood : kExitDamage;
}

}  // namespace mp4v
