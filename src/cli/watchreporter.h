#pragma once

#include "changeeventprinter.h"
#include "snapshot/lsoffetcher.h"

// What a watch session reports at each pass: every change to the terminal, whatever the
// settings say, and to the system log and the CSV log what the settings ask for (through the
// application's own reporter, when one is given).
class WatchReporter final : public ChangeReporting {
public:
    WatchReporter(ChangeEventPrinter& printer, ChangeReporting* settingsReporter)
        : m_printer(printer), m_settingsReporter(settingsReporter)
    {
    }

    // Every pass is printed, so both kinds of change are always wanted.
    bool needsNotifyOrLogNewConnections() const override { return true; }
    bool needsNotifyOrLogConnectionStateChange() const override { return true; }
    void notifyNewItems(const LsofItemList& items) override;
    void notifyChangedItems(const LsofItemList& items) override;

private:
    ChangeEventPrinter& m_printer;
    ChangeReporting* m_settingsReporter;
};
