// Programs that a write command starts: an element may name one in its "DispatchW" attribute.
//
// The queue is filled by the handler and emptied at the end of the same command, after the changed
// documents have been saved: a program that is told of a change finds it in the file. Server
// thread only.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string_view>

namespace veltrancord {

// Queues the program that `element`, which was written, names, unless the queue already holds it: a
// program runs once for a command, however many of its elements were written. A program path over
// 63 characters is cut. Prints "[XmlCheckDispatch]..." on standard error for each queued program.
//
// `argument` is the whole argument of the command: the text that each queued program of this
// command reads from its standard input. The first queued program copies it into a file.
void queue_program(const TiXmlElement& element, std::string_view argument);

// Keeps programs from being queued for the rest of the process: for documents of another device.
void leave_programs_out();

// Starts the queued programs in order, without waiting for them, each with the last part of its
// path as its only argument, "PATH=/bin" as its environment and the argument text as its standard
// input (an empty one when the text could not be kept). A failing fork prints "fork" with the
// reason and goes on with the next one. The queue is empty afterwards.
void run_program_queue();

// Number of queued programs. For tests and fuzz targets, which look at the queue between commands.
[[nodiscard]] std::size_t queued_programs();

}  // namespace veltrancord
