#pragma once

// The track manager's messages to the user as a desktop host shows them:
// a store that cannot be opened while the program runs gets a warning
// panel, and stores that cannot be opened at start get the alert with a
// single "Quit" button, after which the program ends.
class HBTrackManagerAlerts
{
public:
    // Call once a QApplication exists, before the first use of the managers.
    static void install();
};
