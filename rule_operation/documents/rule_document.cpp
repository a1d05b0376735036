#include "rule_operation/documents/rule_document.h"

#include "rule_operation/documents/content_document.h"

std::string get_rule_content(const std::string& evtGUID, const std::string& actGUID,
                             const std::string& timeprofileGUID)
{
    std::string elements = xml_element("active", "1") + xml_element("EventProfileNum", "1") +
                           xml_element("EventProfiles", xml_element("evtpf0", evtGUID)) +
                           xml_element("TriggerByAllEvents", "0") +
                           xml_element("SimultaneousTime", "10") +
                           xml_element("TimeProfile", timeprofileGUID);
    if (!actGUID.empty()) {
        elements += xml_element("ActionProfileNum", "1") +
                    xml_element("ActionProfiles", xml_element("actpf0", actGUID));
    }
    elements += xml_element("ActionTime", "10") + xml_element("MaskedTime", "10") +
                xml_element("CreationMethod", "quick");
    return encode_document("rule", elements);
}
