#include <exception>

#include "AdminDigestGuard.h"
#include "ApiError.h"
#include "ApiReply.h"
#include "ApiRoutes.h"
#include "AuditLine.h"
#include "GatewaydLog.h"

namespace gatewayd {
namespace {

// For errors no route produced (unknown route, refused by the HTTP layer).
const char* httpLayerMessage(int status) {
    switch (status) {
        case 400: return "the request cannot be parsed";
        case 404: return "no such route";
        case 405: return "the route does not take this method";
        case 413: return "the request body is too large";
        case 414: return "the request target is too long";
        default: return "the request failed";
    }
}

}  // namespace

void installManagementApi(httplib::Server& server, ApiRouter& routes, const TelmiLibrary& library,
                          ListenerKeeper& keeper) {
    server.set_pre_routing_handler([](const httplib::Request& req, httplib::Response& res) {
        return admitAdmin(req, res) ? httplib::Server::HandlerResponse::Unhandled
                                    : httplib::Server::HandlerResponse::Handled;
    });
    addTelmiSwitchRoutes(routes, library);
    addUserRoutes(routes, library);
    addPortRoutes(routes, library);
    addDeviceRoutes(routes);
    addLockoutRoutes(routes);
    addCredentialRoutes(routes);
    addSettingsRoutes(routes);
    addListenerRoutes(routes, keeper);

    server.set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr failure) {
        try {
            std::rethrow_exception(failure);
        } catch (const ApiError& error) {
            replyError(res, error.httpStatus(), error.code(), error.what());
        } catch (const std::exception& error) {
            replyError(res, 500, 0, std::string("internal error: ") + error.what());
        } catch (...) {
            replyError(res, 500, 0, "internal error");
        }
    });
    server.set_error_handler(
        httplib::Server::HandlerWithResponse([&routes](const httplib::Request& req, httplib::Response& res) {
            if (!res.body.empty()) {
                return httplib::Server::HandlerResponse::Unhandled;
            }
            if (res.status == 404) {
                if (const std::string allowed = routes.allowedMethods(req.path); !allowed.empty()) {
                    res.status = 405;
                    res.set_header("Allow", allowed);
                }
            }
            replyError(res, res.status, 0, httpLayerMessage(res.status));
            return httplib::Server::HandlerResponse::Handled;
        }));
    server.set_logger([](const httplib::Request& req, const httplib::Response& res) {
        GATEWAYD_LOG(res.status < 400 || res.status == 401 ? gwlog::kDetail : gwlog::kWarning, "API %s %s from %s: %d",
                     req.method.c_str(), req.path.c_str(), req.get_header_value("X-Real-IP").c_str(), res.status);
        if (const std::string audit = auditLine(req, res); !audit.empty()) {
            GATEWAYD_LOG(gwlog::kStartEnd, "%s", audit.c_str());
        }
    });
}

}  // namespace gatewayd
