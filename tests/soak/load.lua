-- A load for wrk with as many threads as connections. Each thread is one client: it makes, lists
-- and deletes rules of its own, makes mistakes in between, and checks every answer. From the
-- environment:
--   SOAK_REQUESTS  requests of one client
--   SOAK_LOGIN     what an authorised client sends as Authorization
--   SOAK_RESULT    file for the figures, in JSON
local cjson = require "cjson"

local MOST_RULES = 4 -- of one client; with more, most GUIDs of the few channels are in use
local CHANNELS = {0, 1, 2, 3, 4, 5, 6, 7, 10, 191}
local EVENTS = {0x20010000, 0x20060001, 0x20060002, 0x20060003, 0x200A0001, 0x200C0001}
local ADD = "?func=addRule"

local threads = {}
local quota = tonumber(os.getenv("SOAK_REQUESTS"))
local login = os.getenv("SOAK_LOGIN")
local pending -- the request under way
local made = 0
-- Global, because `done` reads them from each thread.
answered = 0
outcomes = {} -- how many answers, by kind and outcome
faults = {}
rules = {} -- GUIDs, "" before it is known, of the client's own rules by name

local function fault(text)
    faults[#faults + 1] = "client " .. client .. ": " .. text
end

local function one_of(list)
    return list[math.random(#list)]
end

local function rule_document(name)
    local camera = {chIdx = one_of(CHANNELS), alarm = {0}}
    local rule = {event = {{eventID = one_of(EVENTS), camera = {camera}}}}
    if math.random(2) == 1 then
        rule.action = {{ActionName = "RecordControl", chIdx = {one_of(CHANNELS)}}}
    end
    rule.ruleName = name .. (rule.action and "-2" or "-1")
    return cjson.encode({rule = rule}), rule.ruleName
end

-- The names of the client's rules; with `known` only of those whose GUID it knows.
local function own_names(known)
    local names = {}
    for name, guid in pairs(rules) do
        if guid ~= "" or not known then
            names[#names + 1] = name
        end
    end
    return names
end

-- Every kind of request: `make` returns method, target, body and what `succeed` needs to know of
-- it; `accepts` are its right outcomes, of which the first one is success.
local kinds = {}

kinds.add = {
    accepts = {"200/0", "400/-911", "400/-221"},
    make = function()
        made = made + 1
        local body, name = rule_document("c" .. client .. "-" .. made)
        return "POST", ADD, body, name
    end,
    succeed = function(name)
        rules[name] = ""
    end
}

kinds.delete = {
    accepts = {"200/0"},
    make = function()
        local names = own_names(true)
        local guids = {string.rep("F", 32)}
        for _, name in ipairs(names) do
            guids[#guids + 1] = rules[name]
        end
        return "DELETE", "", cjson.encode({ruleGUID = guids}), names
    end,
    succeed = function(names)
        for _, name in ipairs(names) do
            rules[name] = nil
        end
    end
}

kinds.list = {
    accepts = {"200/list"},
    make = function()
        return "GET", "", ""
    end,
    succeed = function(_, document)
        local listed = {}
        for _, rule in ipairs(document.ruleList) do
            if rule.name:match("^c(%d+)-") == tostring(client) then
                listed[rule.name] = rule.GUID
                if not rules[rule.name] then
                    fault("listed, but not there: " .. rule.name)
                end
            end
        end
        for name in pairs(rules) do
            if not listed[name] then
                fault("there, but not listed: " .. name)
            end
        end
        rules = listed
    end
}

local function mistake(outcome, method, target, body)
    return {accepts = {outcome}, make = function() return method, target, body end}
end

kinds.put = mistake("200/null", "PUT", "", "{}")
kinds.stranger = mistake("401/-2", "GET", "", "")
kinds.bad_method = mistake("200/-3", "PATCH", "", "{}")
kinds.bad_json = mistake("400/-101", "POST", ADD, '{"rule": ')
kinds.bad_channel = mistake("400/-200", "POST", ADD,
    '{"rule": {"event": [{"eventID": 536936448, "camera": [{"chIdx": 9}]}]}}')
kinds.bad_function = mistake("400/-292", "POST", "?func=none", "{}")
kinds.bad_list = mistake("400/-303", "DELETE", "", '{"ruleGUID": "A"}')

local MISTAKES = {"put", "stranger", "bad_method", "bad_json", "bad_channel", "bad_function",
                  "bad_list"}

local function choose_kind()
    if math.random() < 0.3 then
        return one_of(MISTAKES)
    elseif math.random() < 0.2 then
        return "list"
    end
    return #own_names(false) < MOST_RULES and "add" or #own_names(true) > 0 and "delete" or "list"
end

-- What an answer is, as "status/code", "status/list" or "status/null".
local function outcome_of(status, headers, body)
    local readable, document = pcall(cjson.decode, body)
    local what = "malformed"
    if not readable or headers["Content-type"] ~= "application/json" or body:sub(-2) ~= "\n\n" then
        return what
    elseif document == cjson.null then
        what = "null"
    elseif type(document.ruleList) == "table" then
        what = "list"
    elseif type(document.ret_code) == "number" and type(document.ret_mesg) == "string" then
        what = document.ret_code
    end
    return status .. "/" .. what, document
end

function setup(thread)
    threads[#threads + 1] = thread
    thread:set("client", #threads)
end

function init()
    math.randomseed(os.time() * 100 + client)
end

function request()
    -- The first request is also made once without being sent, for wrk to look at.
    if pending and answered > 0 then
        fault("no answer: " .. pending.kind)
    end
    local kind = choose_kind()
    local method, target, body, facts = kinds[kind].make()
    pending = {kind = kind, facts = facts}
    local headers = {Authorization = kind ~= "stranger" and login or nil}
    return wrk.format(method, wrk.path .. target, headers, body)
end

function response(status, headers, body)
    local kind = kinds[pending.kind]
    local outcome, document = outcome_of(status, headers, body)
    local counter = pending.kind .. " " .. outcome
    outcomes[counter] = (outcomes[counter] or 0) + 1
    if not (" " .. table.concat(kind.accepts, " ") .. " "):find(" " .. outcome .. " ", 1, true) then
        fault(counter .. ": " .. body:sub(1, 300))
    elseif kind.succeed and outcome == kind.accepts[1] then
        kind.succeed(pending.facts, document)
    end
    pending = nil
    answered = answered + 1
    if answered == quota then
        wrk.thread:stop()
    end
end

function done(summary)
    local errors = summary.errors
    local broken = errors.connect + errors.read + errors.write + errors.timeout
    local result = {requests = 0, seconds = summary.duration / 1e6, broken = broken, outcomes = {},
                    faults = {}, rules = {}}
    for _, thread in ipairs(threads) do
        result.requests = result.requests + thread:get("answered")
        for counter, count in pairs(thread:get("outcomes")) do
            result.outcomes[counter] = (result.outcomes[counter] or 0) + count
        end
        for _, text in ipairs(thread:get("faults")) do
            result.faults[#result.faults + 1] = text
        end
        for name in pairs(thread:get("rules")) do
            result.rules[#result.rules + 1] = name
        end
    end
    local file = assert(io.open(os.getenv("SOAK_RESULT"), "w"))
    file:write(cjson.encode(result))
    file:close()
end
