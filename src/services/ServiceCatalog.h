#pragma once

#include "MailService.h"

#include <optional>
#include <string>

namespace orvane {

// The three services of one run, built once and read-only afterwards. The
// application makes one from the environment and hands it to what needs it.
class ServiceCatalog {
public:
    // With the overrides file at overridesPath applied (none when empty).
    explicit ServiceCatalog(const std::string& overridesPath = {});
    // With the file named by ORVANE_SERVICE_OVERRIDES, if any.
    static ServiceCatalog fromEnvironment();

    const MailService& gmail() const { return m_gmail; }
    const MailService& calendar() const { return m_calendar; }
    const MailService& outlook() const { return m_outlook; }
    // mail or absent → Gmail, calendar → Calendar, outlook → Outlook.
    const MailService& forService(std::optional<AccountService> service) const;

private:
    // Owned references
    MailService m_gmail;
    MailService m_calendar;
    MailService m_outlook;
};

} // namespace orvane
