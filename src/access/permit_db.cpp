#include "access/permit_db.h"

#include "access/groups.h"
#include "leaf/child_program.h"
#include "leaf/message.h"
#include "leaf/result.h"
#include "leaf/trusted_program.h"
#include "store/document_set.h"
#include "store/read_query.h"

namespace veltrancord {

namespace {

constexpr const char* sync_script = "/bin/PermitSyncCb.sh";

void start_sync_script() {
    char script[] = "/bin/PermitSyncCb.sh";
    char path[] = "PATH=/usr/bin:/usr/sbin:/bin:/sbin";
    char shell[] = "SHELL=/bin/sh";
    char home[] = "HOME=/home";
    char* const arguments[] = {script, nullptr};
    char* const environment[] = {path, shell, home, nullptr};
    program_start start;
    start.path = sync_script;
    start.arguments = arguments;
    start.environment = environment;
    start.report_exec_failure = true;
    if (start_program(start) < 0) {
        print_reason("fork");
    }
}

}  // namespace

int32_t save_xml_to_file(const char* path, const char* file) {
    return DumpXmlToFile(path, file);
}

void save_permit_db() {
    if (save_xml_to_file(permit_db_content, permit_db_path) < 0) {
        print_error("Permit save file error\n");
        return;
    }
    // Also when there was nothing to write and the file is the old one: the script still learns
    // that the lists were built anew.
    if (XmlFileExists(sync_script) == 1 && is_trusted_program(sync_script)) {
        start_sync_script();
    }
}

}  // namespace veltrancord
