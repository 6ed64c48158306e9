# cmake -DNM=… -DLIBRARY=… -P: the shared library shows the client and the service class, and all of these.
execute_process(COMMAND ${NM} -DC --defined-only ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "[][;]" "_" symbols "${symbols}")
string(STRIP "${symbols}" symbols)
string(REPLACE "\n" ";" symbols "${symbols}")

set(shown "(zepclient::CdxMoroClient|xalobjects_GX2::CardataexchangeService)")
foreach(symbol IN LISTS symbols)
  if(NOT symbol MATCHES "^[0-9a-f]+ [A-Za-z] ((vtable|typeinfo|typeinfo name) for )?${shown}")
    message(SEND_ERROR "exported, but not part of the interface: ${symbol}")
  endif()
endforeach()

foreach(wanted "vtable for zepclient::CdxMoroClient" "typeinfo for zepclient::CdxMoroClient"
        "zepclient::CdxMoroClient::getInstance" "zepclient::CdxMoroClient::StartCdxMoroClient"
        "vtable for xalobjects_GX2::CardataexchangeService::CdxData"
        "xalobjects_GX2::CardataexchangeService::getServiceName"
        "xalobjects_GX2::CardataexchangeService::mapString2CdxDataFields")
  if(NOT symbols MATCHES "${wanted}")
    message(SEND_ERROR "not exported: ${wanted}")
  endif()
endforeach()
