// The verbs. Each prints its answer and returns the exit status.
#ifndef TOOLS_VOSK_VERBS_H
#define TOOLS_VOSK_VERBS_H

#include "options.h"

namespace vosk {

int annotate(const common_options &common, const annotate_options &options);
int collect(const common_options &common, const collect_options &options);
int detail(const common_options &common, const detail_options &options);
int doctor(const common_options &common, const doctor_options &options);
int env(const common_options &common, const env_options &options);
int list(const common_options &common, const list_options &options);
int push(const common_options &common, const push_options &options);
int prune(const common_options &common, const prune_options &options);
int report(const common_options &given, const report_options &options);
int run_command(const common_options &common, const run_options &options);
int show(const common_options &common, const show_options &options);
int show_environment(const common_options &common, const env_options &options);
int trace(const common_options &common, const trace_options &options);
int verify(const common_options &common, const verify_options &options);

}  // namespace vosk

#endif
