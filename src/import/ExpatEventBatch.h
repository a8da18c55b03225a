#pragma once

#include <QtGlobal>

#include <string>
#include <vector>

// A run of the reader's events, recorded on the thread that runs Expat and
// delivered on the thread that parses. Every text is copied out of Expat's
// buffers into `bytes`, which the events point into by offset, so that the
// batch holds its events whole whatever Expat does next.
struct ExpatEventBatch
{
    enum class Kind : quint8 {
        StartElement,
        EndElement,
        Characters,
        Comment,
        ProcessingInstruction,
        StartNamespace,
        EndNamespace,
    };

    // A piece of `bytes`: UTF-8, as Expat gave it.
    struct Text
    {
        quint32 offset = 0;
        quint32 length = 0;
    };

    // Names repeat from tag to tag, so each gets a number the first time it
    // is met and its bytes go once into `newNames`; the few names beyond the
    // recorder's table come as text every time, with number kInlineName.
    static constexpr quint32 kInlineName = ~quint32(0);
    struct Name
    {
        quint32 id = kInlineName;
        Text text;
    };

    // Where Expat was when it reported the event, as its position functions
    // give it: 1-based line, 0-based column in characters, 0-based byte
    // offset in the document and the event's length in bytes. An event
    // comes with its offset and length only; its line and column are
    // counted on the delivering side.
    struct Position
    {
        qint64 line = 0;
        qint64 column = 0;
        qint64 byte = 0;
        qint64 count = 0;
    };

    struct Event
    {
        Kind kind = Kind::Characters;
        // Expat reports some events of one piece of markup one after the
        // other without looking whether it was told to stop in between (the
        // end of an empty element after its start); such an event is marked.
        bool sameMarkup = false;
        // Namespace declarations with no URI (xmlns="").
        bool absentText = false;
        Name name;   // element name, processing instruction's target, namespace prefix
        Text text;   // character data, comment, instruction's data, namespace URI
        quint32 firstAttribute = 0;
        quint32 attributeCount = 0;
        Position position;
    };

    struct Attribute
    {
        Name name;
        Text value;
    };

    // Names numbered in this batch, in the order of their numbers.
    std::vector<Text> newNames;
    std::vector<Event> events;
    std::vector<Attribute> attributes;
    std::string bytes;
    // The encoding the XML declaration names, on the batch that holds the
    // events after it.
    std::string declaredEncoding;
    // Set on the last batch of a parse.
    bool last = false;

    Text append(const char *utf8, size_t length)
    {
        const Text text{quint32(bytes.size()), quint32(length)};
        bytes.append(utf8, length);
        return text;
    }
    const char *data(Text text) const { return bytes.data() + text.offset; }

    void clear()
    {
        newNames.clear();
        events.clear();
        attributes.clear();
        bytes.clear();
        declaredEncoding.clear();
        last = false;
    }
};
