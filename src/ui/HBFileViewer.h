#pragma once

#include <QString>

// The desktop's file manager: shows a file selected in its folder through
// the freedesktop FileManager1 interface on the session bus, or, where no
// file manager answers there, opens the folder holding it.
class HBFileViewer
{
public:
    static void selectFile(const QString &path);
};
