// What the device offers to each of its CGI programs: signals, path tokens, authentication.
#pragma once

#include <string>
#include <vector>

struct tagINPUT;

// Sets up the signal handling of the process. Called once, before anything else. Afterwards a write
// to a closed pipe or socket, or beyond a file size limit, must fail with an error and not end the
// process.
void register_signal_handler();

// Splits `path` at each '/' and appends the tokens to `*tokens`. Called only if there is a
// PATH_INFO; `path` is the environment's own text and may be changed. Returns 0 on success; if the
// caller is then refused, the result becomes the exit status of the process.
int cgi_uri_token_paser(char* path, std::vector<std::string>* tokens);

// What authentication knows about the caller. The rule endpoint reads nothing from it.
struct t_vistra_auth_info {
    char user_name[64];  // zero-terminated; empty until the caller is authenticated
};

// Authenticates the caller of the request. `what` is the permission that is required; the rule
// endpoint always passes 11. `*info` is all zero before the call. Returns 0 when the caller may
// proceed, and then fills `*info`; any other value is a refusal. It must refuse whenever it is in
// doubt, because nothing is checked again later, and its time must not reveal whether a user
// exists. A name in REMOTE_USER proves nothing unless the web server is known to have checked the
// password: some pass on whatever name the client sent (docs/web-servers.md).
int cgi_check_user_authentication_v3(tagINPUT* input, t_vistra_auth_info* info, unsigned int what);
