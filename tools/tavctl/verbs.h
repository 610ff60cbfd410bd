#ifndef TAVCTL_VERBS_H
#define TAVCTL_VERBS_H

#include "options.h"

namespace tavctl {

// Each adds one verb with its options.
void addDescribe(CLI::App& app, Run& run);
void addCall(CLI::App& app, Run& run);
void addOpen(CLI::App& app, Run& run);
void addListen(CLI::App& app, Run& run);
void addProbe(CLI::App& app, Run& run);
void addSpy(CLI::App& app, Run& run);
void addDecode(CLI::App& app, Run& run);
void addServe(CLI::App& app, Run& run);
void addBench(CLI::App& app, Run& run);
void addEncode(CLI::App& app, Run& run);

}  // namespace tavctl

#endif
