#include "rule_operation/documents/rule_document.h"

#include "rule_operation/documents/content_document.h"

using documents::element;

std::string get_rule_content(const std::string& evtGUID, const std::string& actGUID,
                             const std::string& timeprofileGUID)
{
    std::string elements = element("active", "1") + element("EventProfileNum", "1") +
                           element("EventProfiles", element("evtpf0", evtGUID)) +
                           element("TriggerByAllEvents", "0") + element("SimultaneousTime", "10") +
                           element("TimeProfile", timeprofileGUID);
    if (!actGUID.empty()) {
        elements += element("ActionProfileNum", "1") +
                    element("ActionProfiles", element("actpf0", actGUID));
    }
    elements += element("ActionTime", "10") + element("MaskedTime", "10") +
                element("CreationMethod", "quick");
    return documents::encode_document("rule", elements);
}
