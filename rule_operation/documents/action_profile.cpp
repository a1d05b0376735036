#include "rule_operation/documents/action_profile.h"

#include "rule_operation/documents/content_document.h"

using documents::element;

std::string get_act_rec_content(std::string targetGUID)
{
    return documents::encode_document(
        "action_profile",
        element("ActionName", "RecordControl") + element("type", "1") + element("DelayStart", "0") +
            element("DelayStop", "0") + element("TargetNum", "1") +
            element("TargetIds", element("id0", targetGUID)) + element("Params", ""));
}
