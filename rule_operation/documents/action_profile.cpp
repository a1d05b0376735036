#include "rule_operation/documents/action_profile.h"

#include "rule_operation/documents/content_document.h"

std::string get_act_rec_content(std::string targetGUID)
{
    return encode_document("action_profile",
                           xml_element("ActionName", "RecordControl") + xml_element("type", "1") +
                               xml_element("DelayStart", "0") + xml_element("DelayStop", "0") +
                               xml_element("TargetNum", "1") +
                               xml_element("TargetIds", xml_element("id0", targetGUID)) +
                               xml_element("Params", ""));
}
