#pragma once

#include "platform/store/HBPredicate.h"
#include "platform/store/HBManagedObjectID.h"

#include <QSet>

#include <mutex>

struct HBPredicate::Node
{
    Type type = Type::Invalid;
    QString error;
    QList<HBPredicate> children;
    Operator op = Operator::Equal;
    int options = 0;
    Expression left;
    Expression right;

    // IN against a long list of records is answered from a hash set,
    // built on first use, so that checking many objects stays linear.
    mutable std::once_flag idSetOnce;
    mutable QSet<HBManagedObjectID> idSet;
    mutable bool rightIsAllIDs = false;
};
