#pragma once

// The track manager's messages to the user as a desktop host shows them:
// a store that cannot be opened while the program runs gets a warning
// panel, stores that cannot be opened at start get the alert with a single
// "Quit" button, after which the program ends, and each message of
// gpsbabel gets a "GPSBabel error:" alert on the window of its download
// (stderr for a download without one).
class HBTrackManagerAlerts
{
public:
    // Call once a QApplication exists, before the first use of the managers.
    static void install();
};
