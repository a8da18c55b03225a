#pragma once

#include "browse/HBTreeNode.h"

// "All Dates": a leaf that stands for no restriction by date. Its year, -1,
// puts it before every year where it is placed among them. The date tree
// does not hold it.
class AllDatesObject : public HBTreeNode
{
public:
    static AllDatesObject *allDatesObject();

    qint64 year() const { return -1; }
    QString name() const override { return QStringLiteral("All Dates"); }
    bool isLeaf() const override { return true; }
};
