#include "browse/HBObservableTreeNode.h"

#include <QCoreApplication>

HBObservableTreeNode::HBObservableTreeNode()
{
    // Date nodes are made on the thread that reads the store; they belong to
    // the main thread, where the trees change and are shown.
    if (const QCoreApplication *app = QCoreApplication::instance())
        moveToThread(app->thread());
}
