#pragma once

class HBGPSBabelImporterPreflight;

// Who hears how a download sheet ended: with true once the user has chosen
// where the download goes (the sheet's arguments are then complete), with
// false when the sheet or its save panel was cancelled. The track manager
// answers by queueing the download; others need not answer at all.
class HBGPSBabelImporterDelegate
{
public:
    virtual ~HBGPSBabelImporterDelegate() = default;
    virtual void gpsBabelImporterDidFinishSuccessfully(HBGPSBabelImporterPreflight * /*importer*/, bool /*success*/) {}
};
