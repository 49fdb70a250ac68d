#ifndef VELLUMENT_TOOLKIT_CKHTTPRESPONSE_IMPL_H
#define VELLUMENT_TOOLKIT_CKHTTPRESPONSE_IMPL_H

#include <mutex>
#include <string>

#include <vellument/CkHttpResponse.h>

#include "toolkit/CkHttp_Internal.h"

// What CkHttp fills in; all text UTF-8. The *Out strings hold the last ANSI result handed out.
struct CkHttpResponse::Impl {
    std::mutex lock;
    ckhttp::Reply reply;
    std::string finalUrl;
    std::string statusOut;
    std::string headerOut;
    std::string fieldOut;
    std::string bodyOut;
    std::string urlOut;
};

#endif
