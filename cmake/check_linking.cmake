# Run after linking, with -DPROGRAM=FILE and -DINPUTS=FILE, a Makefile rule whose prerequisites are all
# files that the linker has read, including those that a shared library needs. Two copies of a library
# in one process have two states, and an object of one breaks the other. Such a program is removed, so
# that nothing packs it.
file(STRINGS "${INPUTS}" inputs REGEX "^  ")
foreach(library jsoncpp json-c stdc++)
    string(REPLACE "+" "\\+" name "${library}")
    if(inputs MATCHES "/lib${name}\\.a" AND inputs MATCHES "/lib${name}\\.so")
        file(REMOVE "${PROGRAM}")
        message(FATAL_ERROR "A shared library of the platform needs lib${library}, which the program"
                " has from an archive: leave it out of RULE_MIXED_ARCHIVES, or choose RULE_LINK=shared")
    endif()
endforeach()
