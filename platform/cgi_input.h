// The CGI library: the URI parameters of the request that this process serves.
#pragma once

// The library's handle on the request. Opaque: callers only pass it on.
struct tagINPUT;

// One decoded URI parameter. Both texts are zero-terminated, never null, and owned by the handle.
struct st_cgi_parameter {
    const char* name;
    const char* value;
};

// Reads the URI parameters of the request from the CGI environment. Must leave standard input
// unread, also through a buffer: the request body is read after this call. Returns the handle,
// which the caller releases with `CGI_Free_Input`, or null; the request is then refused as
// unauthorised.
tagINPUT* CGI_Get_Input_URL();

// Finds the parameter `name` (exact, case-sensitive); of two parameters of the same name the first
// one counts. `reserved` is always 0. Returns the handle's own entry, valid until `CGI_Free_Input`,
// or null when there is no such parameter.
st_cgi_parameter* _CGI_Find_Parameter(tagINPUT* input, const char* name, int reserved);

// Releases what `CGI_Get_Input_URL` returned; null is allowed and ignored. Called once at the end
// of every request, unless the camera configuration could not be loaded. Never throws.
void CGI_Free_Input(tagINPUT* input);
