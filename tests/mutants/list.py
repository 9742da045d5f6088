"""Damages of one line, each with the tests that must turn red by it.

file, the text that is replaced (it stands there exactly once), its replacement, what that breaks,
and what has to fail: tests of the Python suites (a path below tests and a pattern as of pytest -k),
or unit tests ("unit:", the program, and a pattern as of --gtest_filter).
"""

from typing import NamedTuple


class Mutant(NamedTuple):
    name: str
    promise: str
    file: str
    old: str
    new: str
    tests: tuple  # of pairs


MUTANTS = [
    Mutant("no flush of the data", "S4", "src/leaf/file_replacer.cpp",
           "if (!write_whole(file_.get(), content_) || !flush_whole(file_.get())) {",
           "if (!write_whole(file_.get(), content_)) {",
           (("faults/test_saving.py", "renamed_before and write"),)),
    Mutant("no flush of the directory", "S4", "src/leaf/file_replacer.cpp",
           "return flush_whole(directory_.get()) ? result_ok : fail(errno);",
           "return result_ok;",
           (("faults/test_saving.py", "renamed_before and write"),)),
    Mutant("removed documents come back", "S4", "src/update/document_removal.cpp",
           "    static_cast<void>(flush_directory(XmlConfigDir()));\n",
           "",
           (("faults/test_saving.py", "removed_document"),)),
    Mutant("the helper file stays", "S2", "src/leaf/file_replacer.cpp",
           "        ::unlinkat(directory_.get(), helper_, 0);\n",
           "",
           (("faults/test_failing_calls.py", "every_call and writeattr"),)),
    Mutant("in place instead of aside", "S1", "src/leaf/file_replacer.cpp",
           "    const bool made = make_helper();\n    if (made",
           "    const bool made = false;\n    errno = EROFS;\n    if (made",
           (("e2e/test_faults_save.py", "killed and writeattr or killed and remove"),)),
    Mutant("a failed save counts as a save", "S2", "src/update/document_saving.cpp",
           "        return false;\n    }\n    node.saveFlags &= ~both_flags;",
           "    }\n    node.saveFlags &= ~both_flags;",
           (("faults/test_failing_calls.py", "every_call and writeattr"),)),
    Mutant("a save for each document", "W1", "src/update/document_saving.cpp",
           "(node->saveFlags & DOC_SAVE_FLASH) != 0 &&",
           "true &&",
           (("faults/test_saving.py", "one_replacement"),)),
    Mutant("leftovers are not swept", "S6", "src/leaf/file_replacer.cpp",
           "            remove_leftover(::dirfd(opened.get()), entry->d_name);\n",
           "",
           (("e2e/test_persistence.py", "leftovers"),)),
    Mutant("what was read back is not compared", "S2", "src/update/document_creation.cpp",
           "std::strcmp(text.get(), written.c_str()) != 0",
           "written.empty()",
           (("faults/test_failing_calls.py", "every_call and upload"),)),
    Mutant("an exception ends the service", "M1", "src/server/dispatch.cpp",
           "    } catch (const std::exception&) {\n        client.reply.close();\n"
           "        return result_too_large;",
           "    } catch (const std::exception&) {\n        throw;\n"
           "        return result_too_large;",
           (("faults/test_allocations.py", "upload or SetSession"),)),
    Mutant("open elements are lost", "M1", "src/store/xml_document.cpp",
           "        record.free_all();\n",
           "",
           (("faults/test_allocations.py", "every_allocation and syncxml"),
            ("faults/test_allocations.py", "thousands and upload"),
            ("faults/test_allocations.py", "too_long and restore"))),
    Mutant("a note that is missing", "M1", "src/leaf/allocation_record.cpp",
           "    if (block != nullptr) {\n        record->add(block);",
           "    if (block != nullptr && size != 31) {\n        record->add(block);",
           (("faults/test_allocations.py", "thousands and restore"),)),
    Mutant("nesting is not counted", "M4", "src/store/xml_document.cpp",
           "if (NestsDeeper(normalised.c_str(), max_xml_nesting)) {",
           "if (NestsDeeper(normalised.c_str(), 1 << 30)) {",
           (("faults/test_sizes.py", "deep_documents and 50000"),)),
    Mutant("accepted sockets travel into programs", "F2", "src/server/listener.cpp",
           "SOCK_NONBLOCK | SOCK_CLOEXEC));",
           "SOCK_NONBLOCK));",
           (("unit:server_test", "*ccept*:*isten*"),)),
    Mutant("no descriptor in reserve", "F3", "src/server/listener.cpp",
           "        case EMFILE:\n        case ENFILE:\n            turn_away(server);\n            break;\n",
           "        case EMFILE:\n        case ENFILE:\n            static_cast<void>(&turn_away);\n"
           "            break;\n",
           (("faults/test_clients.py", "crowd and 256"),)),
    Mutant("the semaphore keeps an earlier value", "P3", "src/service/supervisor.cpp",
           "    semaphore_create(readiness_semaphore, 0);\n",
           "",
           (("e2e/test_process.py", "semaphore_value"),)),
    Mutant("children are not reaped", "P4", "src/service/worker.cpp",
           "            reap_children();\n",
           "            g_childExited.store(false);\n",
           (("faults/test_processes.py", "many_events and quick"),)),
    Mutant("one byte less is reserved", "M1", "src/server/request_reader.cpp",
           "    client.payload.get()[client.payload_size] = '\\0';",
           "    client.payload.get()[client.payload_size - 1] = '\\0';",
           (("e2e/test_framing.py", "terminator or length"),)),
    Mutant("restore forgets what it cannot look at", "S2", "src/store/document_set.cpp",
           "::stat(path, &status) != 0 && (errno == ENOENT || errno == ENOTDIR)",
           "::stat(path, &status) != 0",
           (("unit:store_test", "*pruning*"),)),
    Mutant("times in 32 bits", "C2", "src/server/event_loop.cpp",
           "(expiry.seconds - now.seconds) * 1000",
           "static_cast<int32_t>(expiry.seconds - now.seconds) * 1000",
           (("unit:server_test", "milliseconds_left*"),)),
    Mutant("success while nothing is saved any more", "P2", "src/server/dispatch.cpp",
           "if (client->result >= 0 && g_terminating.load()) {",
           "if (client->result >= 0 && false) {",
           (("unit:server_test", "dispatching.reports*"),)),
]
