#pragma once

#include <QtGlobal>

#include <functional>

// Runs job(0) ... job(count - 1) on the calling thread and on up to one
// fewer threads of its own than the machine has cores, and returns when
// every call has returned. The calls must not depend on one another; which
// thread runs which index, and in what order, is not defined.
//
// The threads are made for the call rather than taken from a shared pool,
// so that work already queued there (deletions, announcements) can never
// hold it up, nor it them.
void HBConcurrentFor(qsizetype count, const std::function<void(qsizetype)> &job);
