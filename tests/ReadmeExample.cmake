# Fails unless README.md contains the exact text of examples/first.cpp.
file(READ ${CMAKE_CURRENT_LIST_DIR}/../README.md readme)
file(READ ${CMAKE_CURRENT_LIST_DIR}/../examples/first.cpp example)
string(FIND "${readme}" "```cpp\n${example}```" position)
if(position EQUAL -1)
    message(FATAL_ERROR "README.md does not contain the exact text of examples/first.cpp")
endif()
