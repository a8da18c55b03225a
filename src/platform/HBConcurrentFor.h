#pragma once

#include <QtGlobal>

#include <functional>

// Runs job(0) ... job(count - 1) on the calling thread and on up to one
// fewer of the library's worker threads than the machine has cores, those
// that are free now, and returns when every call has returned. The calls
// must not depend on one another; which thread runs which index, and in
// what order, is not defined.
void HBConcurrentFor(qsizetype count, const std::function<void(qsizetype)> &job);
