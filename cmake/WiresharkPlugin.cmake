# Writes OUTPUT, the Lua script TEMPLATE with the bytes of the descriptor set DESCRIPTORS in hex and the text of DATABASE.
file(READ ${DESCRIPTORS_FILE} DESCRIPTORS HEX)
file(READ ${DATABASE_FILE} DATABASE)
configure_file(${TEMPLATE} ${OUTPUT} @ONLY)
