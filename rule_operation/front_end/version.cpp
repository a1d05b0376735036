// The version, for those who have only the program's file: strings shows it. Nothing reads it, so
// the linker is told to keep it.
extern "C" {
extern const char RULE_OPERATION_VERSION[];
const char RULE_OPERATION_VERSION[] = "rule_operation " RULE_VERSION;
}
