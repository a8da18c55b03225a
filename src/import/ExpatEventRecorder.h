#pragma once

#include "import/ExpatEventBatch.h"
#include "import/ExpatXMLParserDelegate.h"

#include <QByteArray>

#include <memory>

class ExpatEventQueue;

// Runs Expat over a document and records the events a delegate implements
// into batches for another thread to deliver, so that tokenizing the
// document and handling its events run side by side.
class ExpatEventRecorder
{
public:
    struct Options
    {
        ExpatXMLParserDelegate::Callbacks callbacks;
        bool processNamespaces = false;
        bool reportNamespacePrefixes = false;
    };

    // Creates the Expat parser and installs the handlers for the callbacks
    // named; the document is neither copied nor read until run().
    ExpatEventRecorder(const QByteArray &document, const Options &options, ExpatEventQueue &queue);
    ~ExpatEventRecorder();
    Q_DISABLE_COPY_MOVE(ExpatEventRecorder)

    // False when Expat could not make a parser; run() then does nothing.
    bool isCreated() const;
    // Feeds the whole document and ends with a batch marked last, unless the
    // queue is stopped first. For a thread of its own.
    void run();

    // Once run() has returned: Expat's error (XML_ERROR_NONE after a success)
    // and where it stopped.
    int errorCode() const;
    ExpatEventBatch::Position endPosition() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
