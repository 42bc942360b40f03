// Only the layout of the classes below is looked at; nothing here is ever run. A compiler's dump
// names the slots of a class that is implemented, not those of an abstract one, and does not tell
// overloads apart. So each abstract class gets a probe that implements it, one base per overload.

#include "auth/SSHSessionHostAuthenticator.h"
#include "auth/SSHSessionUserAuthenticator.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSFTPSession.h"
#include "handles/SSHHandleSFTPSessionFile.h"
#include "handles/SSHHandleSession.h"

#include <FileSystem/HandleObjectCore.h>
#include <FileSystem/HandleObjectCoreComposite.h>
#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/RemoteSession.h>
#include <Tarnis/SSHChannel.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/SessionBlockingGuard.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <memory>
#include <string>

// The names of the probes become the names in the list.
namespace Probe {

/// Implements the visit of one class.
template <class Visited, class Base>
struct Visit : Base
{
    using Base::visit;

    void visit(Visited& visited) override;
};

/// Implements one of the two accept operations.
template <class Visitor, class Base>
struct Accept : Base
{
    void do_accept(Visitor& visitor) override;
};

template <class Visitor, class Base>
struct AcceptConst : Base
{
    void do_accept(Visitor& visitor) const override;
};

using namespace Tarnis;

template <class Base, class Last, class... Others>
struct VisitAll : Visit<Last, VisitAll<Base, Others...>>
{};

template <class Base, class First>
struct VisitAll<Base, First> : Visit<First, Base>
{};

struct HostAuthenticatorVisitorConst
    : VisitAll<Tarnis::HostAuthenticatorVisitorConst, const HostAuthenticatorNone,
               const HostAuthenticatorHostKey, const HostAuthenticatorKnownHostFile>
{};

struct HostAuthenticatorVisitor : VisitAll<Tarnis::HostAuthenticatorVisitor, HostAuthenticatorNone,
                                           HostAuthenticatorHostKey, HostAuthenticatorKnownHostFile>
{};

struct HostAuthenticatorResponseVisitorConst
    : VisitAll<Tarnis::HostAuthenticatorResponseVisitorConst, const HostAuthenticatorResponseNone,
               const HostAuthenticatorResponseHostKey, const HostAuthenticatorResponseKnownHostFile>
{};

struct HostAuthenticatorResponseVisitor
    : VisitAll<Tarnis::HostAuthenticatorResponseVisitor, HostAuthenticatorResponseNone,
               HostAuthenticatorResponseHostKey, HostAuthenticatorResponseKnownHostFile>
{};

struct UserAuthenticatorVisitorConst
    : VisitAll<Tarnis::UserAuthenticatorVisitorConst, const UserAuthenticatorNone,
               const UserAuthenticatorPassword, const UserAuthenticatorPrivateKey,
               const UserAuthenticatorPrivateKeyFile, const UserAuthenticatorPrivateKeyAuto>
{};

struct UserAuthenticatorVisitor
    : VisitAll<Tarnis::UserAuthenticatorVisitor, UserAuthenticatorNone, UserAuthenticatorPassword,
               UserAuthenticatorPrivateKey, UserAuthenticatorPrivateKeyFile,
               UserAuthenticatorPrivateKeyAuto>
{};

struct UserAuthenticatorResponseVisitorConst
    : VisitAll<Tarnis::UserAuthenticatorResponseVisitorConst, const UserAuthenticatorResponseNone,
               const UserAuthenticatorResponsePassword, const UserAuthenticatorResponsePrivateKey,
               const UserAuthenticatorResponsePrivateKeyFile,
               const UserAuthenticatorResponsePrivateKeyAuto>
{};

struct UserAuthenticatorResponseVisitor
    : VisitAll<Tarnis::UserAuthenticatorResponseVisitor, UserAuthenticatorResponseNone,
               UserAuthenticatorResponsePassword, UserAuthenticatorResponsePrivateKey,
               UserAuthenticatorResponsePrivateKeyFile, UserAuthenticatorResponsePrivateKeyAuto>
{};

struct HostAuthenticator
    : Accept<Tarnis::HostAuthenticatorVisitor,
             AcceptConst<Tarnis::HostAuthenticatorVisitorConst, Tarnis::HostAuthenticator>>
{
    HostAuthenticationType do_getType() const override;
    bool do_isEqual(const Tarnis::HostAuthenticator& other) const override;
};

struct UserAuthenticator
    : Accept<Tarnis::UserAuthenticatorVisitor,
             AcceptConst<Tarnis::UserAuthenticatorVisitorConst, Tarnis::UserAuthenticator>>
{
    UserAuthenticationType do_getType() const override;
    bool do_isEqual(const Tarnis::UserAuthenticator& other) const override;
};

template <class Base>
using AcceptsHostResponseVisitors =
    Accept<Tarnis::HostAuthenticatorResponseVisitor,
           AcceptConst<Tarnis::HostAuthenticatorResponseVisitorConst, Base>>;

struct HostAuthenticatorResponse : AcceptsHostResponseVisitors<Tarnis::HostAuthenticatorResponse>
{
    HostAuthenticationType do_getType() const override;
    AuthenticateHostResult do_getResult() const override;
};

struct HostAuthenticatorResponseBase
    : AcceptsHostResponseVisitors<Tarnis::HostAuthenticatorResponseBase>
{
    HostAuthenticationType do_getType() const override;
};

template <class Base>
using AcceptsUserResponseVisitors =
    Accept<Tarnis::UserAuthenticatorResponseVisitor,
           AcceptConst<Tarnis::UserAuthenticatorResponseVisitorConst, Base>>;

struct UserAuthenticatorResponse : AcceptsUserResponseVisitors<Tarnis::UserAuthenticatorResponse>
{
    UserAuthenticationType do_getType() const override;
    AuthenticateUserResult do_getResult() const override;
};

struct UserAuthenticatorResponseBase
    : AcceptsUserResponseVisitors<Tarnis::UserAuthenticatorResponseBase>
{
    UserAuthenticationType do_getType() const override;
};

struct RemoteSession : Tarnis::RemoteSession
{
    bool do_connect() override;
    bool do_disconnect() override;
    RemoteSessionState do_getState() override;
    bool do_setUserName(const std::string& userName) override;
    std::string do_getUserName() override;
    bool do_setHostName(const std::string& hostName) override;
    std::string do_getHostName() override;
    bool do_setPortNumber(unsigned short port) override;
    unsigned short do_getPortNumber() const override;
    std::unique_ptr<Tarnis::HostAuthenticatorResponse>
    do_hostAuthenticate(const Tarnis::HostAuthenticator& authenticator) override;
    std::unique_ptr<Tarnis::UserAuthenticatorResponse>
    do_userAuthenticate(const Tarnis::UserAuthenticator& authenticator) override;
};

} // namespace Probe
