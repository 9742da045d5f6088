# What was stored with one key can be read back with that key alone, so a slip here would lock every
# device out of its passwords: a key of another length, or of characters that would not come through
# the compiler's command line as they are, ends the configuring.
string(LENGTH "${VELTRANCORD_VALUE_KEY}" value_key_length)
if(NOT value_key_length EQUAL 7)
  message(FATAL_ERROR "VELTRANCORD_VALUE_KEY has ${value_key_length} bytes and must have 7.")
endif()
if(NOT VELTRANCORD_VALUE_KEY MATCHES "^[!-~]+$" OR VELTRANCORD_VALUE_KEY MATCHES "[\"\\\\$;?]")
  message(FATAL_ERROR "VELTRANCORD_VALUE_KEY holds a character other than printable ASCII, or one "
                      "of \" \\ $ ; ? which a command line would change.")
endif()
