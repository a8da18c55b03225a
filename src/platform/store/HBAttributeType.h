#pragma once

// The kinds of value an attribute holds, and how each is kept in a store
// file: decimals as the text of their digits (so 48.117300 keeps its six
// places) compared in SQL as REAL; dates as integer milliseconds since
// 1970-01-01 UTC; variants (values whose type is chosen by the caller, such
// as the extra attributes of a point) as a QDataStream blob.
enum class HBAttributeType {
    String,
    Integer,   // qint64
    Double,
    Boolean,
    Decimal,   // HBDecimal
    Date,      // QDateTime, UTC, millisecond precision
    Binary,    // QByteArray
    Variant,   // any QVariant that QDataStream can write
};
