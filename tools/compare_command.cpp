/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/compare_command.h"

#include "tools/comparison.h"
#include "tools/decode_command.h"
#include "tools/exit_code.h"
#include "tools/file.h"
#include "tools/picture_source.h"

namespace mp4v {
namespace {

uint64_t CountRest(PictureSource& source, bool one_is_waiting) {
    uint64_t count = one_is_waiting;
    for (Picture picture; source.Next(picture);) count++;
    return count;
}

void CompareAll(PictureSource& a, PictureSource& b, Comparison& comparison) {
    for (;;) {
        Picture picture_a;
        Picture picture_b;
        const bool has_a = a.Next(picture_a);
        const bool has_b = b.Next(picture_b);
        if (!has_a || !has_b) {
            comparison.SetLeftOver(has_a ? CountRest(a, true) : 0, has_b ? CountRest(b, true) : 0);
            return;
        }
        if (picture_a.width != picture_b.width || picture_a.height != picture_b.height) {
            comparison.SetSizesDiffer(picture_a, picture_b);
            return;
        }
        comparison.Add(picture_a, picture_b);
    }
}

}  // namespace

int Compare(const CompareOptions& options) {
    if (options.a == "-" && options.b == "-") throw UsageError("standard input can be read only once");
    if (options.difference == "-") throw UsageError("a difference picture needs a file name");
    if (!options.difference.empty() &&
        (IsSameFile(options.difference, options.a) || IsSameFile(options.difference, options.b))) {
        throw UsageError("'" + options.difference + "' is an input; it is not overwritten");
    }
    InstallSignalHandlers();
    const std::unique_ptr<PictureSource> a = OpenPictures(options.a);
    const std::unique_ptr<PictureSource> b = OpenPictures(options.b);
    Comparison comparison;
    CompareAll(*a, *b, comparison);
    comparison.SetRefused(a->refused(), b->refused());
    WriteToStandardOutput(options.json ? comparison.Json(options.a, options.b) : comparison.Text(options.a, options.b));
    if (!options.difference.empty() && comparison.differs_in_samples()) {
        WritePng(comparison.difference(), options.difference);
    }
    if (Interrupted()) return kExitInterrupted;
    return comparison.same() && a->refused() + b->refused() == 0 ? kExitGood : kExitDamage;
}

}  // namespace mp4v
