/* One side of a conversation between two languages, in C with GLib.
 *
 * Takes the same arguments and reports the same cases as cpp/peer.cpp, which says what
 * they are. */

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <thrift/c_glib/protocol/thrift_binary_protocol.h>
#include <thrift/c_glib/protocol/thrift_compact_protocol.h>
#include <thrift/c_glib/thrift_application_exception.h>
#include <thrift/c_glib/transport/thrift_buffered_transport.h>
#include <thrift/c_glib/transport/thrift_framed_transport.h>
#include <thrift/c_glib/transport/thrift_server_socket.h>
#include <thrift/c_glib/transport/thrift_socket.h>
#include <unistd.h>

#include "tav_broker.h"
#include "tav_emp.h"
#include "tav_emp_event.h"

#if __has_include(<thrift/c_glib/protocol/thrift_json_protocol.h>)
#error "this library has a JSON protocol now: use it here"
#endif

/* --- Both sides */

static GType protocol_type;
static GType transport_type;

static const char *const with_nul = "a\0b";

static ThriftProtocol *protocol_over(ThriftTransport *socket) {
    ThriftTransport *transport = g_object_new(transport_type, "transport", socket, NULL);
    ThriftProtocol *protocol = g_object_new(protocol_type, "transport", transport, NULL);
    return protocol;
}

/* These objects do not own what they use: the caller must release all three. */
static void disconnect(ThriftProtocol *protocol) {
    ThriftTransport *transport = protocol->transport;
    ThriftTransport *socket = NULL;
    g_object_get(transport, "transport", &socket, NULL);
    g_object_unref(socket);
    thrift_transport_close(transport, NULL);
    g_object_unref(protocol);
    g_object_unref(transport);
    g_object_unref(socket);
}

static gchar *long_text(void) {
    return g_strnfill(100000, 'x');
}

/* --- Serving side */

static GMutex events_mutex;
static GString *events;

static gboolean fail(GError **error, gint kind, const gchar *text) {
    g_set_error_literal(error, THRIFT_APPLICATION_EXCEPTION_ERROR, kind, text);
    return FALSE;
}

typedef TavBrokerHandler Broker;
typedef TavBrokerHandlerClass BrokerClass;
GType broker_get_type(void);
G_DEFINE_TYPE(Broker, broker, TYPE_TAV_BROKER_HANDLER)

static gboolean broker_open_emp(TavBrokerIf *self, ConnectionInfo **result, const gchar *name,
                                const gchar *version, const gchar *credential, GError **error) {
    (void)self;
    if (strcmp(name, "none") == 0) {
        return fail(error, THRIFT_APPLICATION_EXCEPTION_ERROR_UNKNOWN, "no such EMP: none");
    }
    gchar *id = g_strjoin("|", name, version, credential, NULL);
    g_object_set(*result, "callbackServicePort", 49801, "empServicePort", -49802, "empID", id,
                 NULL);
    g_free(id);
    return TRUE;
}

static gboolean broker_execute(TavBrokerIf *self, gchar **result, const gint32 fromPort,
                               const gchar *cmd, const gchar *param1, const gchar *param2,
                               const gchar *param3, const gchar *param4, GError **error) {
    (void)self;
    if (strcmp(cmd, "fail") == 0) {
        return fail(error, THRIFT_APPLICATION_EXCEPTION_ERROR_UNKNOWN, "the broker cannot: fail");
    }
    if (strcmp(cmd, "failwell") == 0) {
        return fail(error, THRIFT_APPLICATION_EXCEPTION_ERROR_MISSING_RESULT,
                    "the broker cannot: failwell");
    }
    if (strcmp(cmd, "events") == 0) {
        g_mutex_lock(&events_mutex);
        *result = g_strdup(events->str);
        g_mutex_unlock(&events_mutex);
    } else if (strcmp(cmd, "length") == 0) {
        *result = g_strdup_printf("%zu", strlen(param1));
    } else if (strcmp(cmd, "long") == 0) {
        *result = long_text();
    } else if (strcmp(cmd, "nul") == 0) {
        *result = g_strdup(with_nul);
    } else if (strcmp(cmd, "nothing") == 0) {
        *result = NULL;
    } else {
        *result = g_strdup_printf("%d|%s|%s|%s|%s|%s", fromPort, cmd, param1, param2, param3,
                                  param4);
    }
    return TRUE;
}

static gboolean broker_close_emp(TavBrokerIf *self, gboolean *result, const ConnectionInfo *info,
                                 GError **error) {
    (void)self;
    if (g_strcmp0(info->empID, "none") == 0) {
        return fail(error, THRIFT_APPLICATION_EXCEPTION_ERROR_UNKNOWN, "no such EMP: none");
    }
    *result = info->callbackServicePort == 49801 && info->empServicePort == -49802 &&
              g_strcmp0(info->empID, "camera|2.1|key") == 0;
    return TRUE;
}

static void broker_init(Broker *self) {
    (void)self;
}

static void broker_class_init(BrokerClass *class) {
    class->open_emp = broker_open_emp;
    class->execute = broker_execute;
    class->close_emp = broker_close_emp;
}

typedef TavEmpHandler Emp;
typedef TavEmpHandlerClass EmpClass;
GType emp_get_type(void);
G_DEFINE_TYPE(Emp, emp, TYPE_TAV_EMP_HANDLER)

static gboolean emp_open(TavEmpIf *self, gboolean *result, const gint32 clientID,
                         const gchar *name, const gchar *version, const gchar *credential,
                         GError **error) {
    (void)self;
    if (clientID == -1) {
        return fail(error, THRIFT_APPLICATION_EXCEPTION_ERROR_UNKNOWN, "no client -1");
    }
    *result = clientID == 2147483647 && strcmp(name, "camera") == 0 &&
              strcmp(version, "2.1") == 0 && strcmp(credential, "key") == 0;
    return TRUE;
}

static gboolean emp_close(TavEmpIf *self, gint32 *result, const gint32 clientID, GError **error) {
    (void)self;
    if (clientID == -1) {
        return fail(error, THRIFT_APPLICATION_EXCEPTION_ERROR_UNKNOWN, "no client -1");
    }
    *result = clientID - 10;
    return TRUE;
}

static gboolean emp_execute(TavEmpIf *self, gchar **result, const gint32 clientID,
                            const gchar *cmd, const gchar *param1, const gchar *param2,
                            const gchar *param3, const gchar *param4, GError **error) {
    (void)self;
    if (strcmp(cmd, "fail") == 0) {
        return fail(error, THRIFT_APPLICATION_EXCEPTION_ERROR_UNKNOWN, "the EMP cannot: fail");
    }
    *result = g_strdup_printf("%d|%s|%s|%s|%s|%s", clientID, cmd, param1, param2, param3, param4);
    return TRUE;
}

static gboolean emp_execute_with_param_list(TavEmpIf *self, gchar **result, const gint32 clientID,
                                            const gchar *cmd, const ParamList *list,
                                            GError **error) {
    (void)self;
    if (strcmp(cmd, "fail") == 0) {
        return fail(error, THRIFT_APPLICATION_EXCEPTION_ERROR_UNKNOWN, "the EMP cannot: fail");
    }
    *result = g_strdup_printf("%d|%s|%s|%s|%s|%s|%s|%s|%s|%s|%s|%s", clientID, cmd, list->param1,
                              list->param2, list->param3, list->param4, list->param5,
                              list->param6, list->param7, list->param8, list->param9,
                              list->param10);
    return TRUE;
}

static void emp_init(Emp *self) {
    (void)self;
}

static void emp_class_init(EmpClass *class) {
    class->open = emp_open;
    class->close = emp_close;
    class->execute = emp_execute;
    class->execute_with_param_list = emp_execute_with_param_list;
}

typedef TavEmpEventHandler Callbacks;
typedef TavEmpEventHandlerClass CallbacksClass;
GType callbacks_get_type(void);
G_DEFINE_TYPE(Callbacks, callbacks, TYPE_TAV_EMP_EVENT_HANDLER)

static gboolean callbacks_callback(TavEmpEventIf *self, const gint32 eventType,
                                   const gchar *param1, const gchar *param2, GError **error) {
    (void)self;
    g_mutex_lock(&events_mutex);
    g_string_append_printf(events, "%s%d/%s/%s", events->len == 0 ? "" : "|", eventType, param1,
                           param2);
    g_mutex_unlock(&events_mutex);
    if (strcmp(param1, "fail") == 0) {
        return fail(error, THRIFT_APPLICATION_EXCEPTION_ERROR_UNKNOWN, "nobody hears this");
    }
    return TRUE;
}

static void callbacks_init(Callbacks *self) {
    (void)self;
}

static void callbacks_class_init(CallbacksClass *class) {
    class->callback = callbacks_callback;
}

struct server {
    ThriftServerTransport *transport;
    ThriftProcessor *processor;
};

/* Like ThriftSimpleServer, which cannot report a port that the system chose. */
static gpointer serve_connections(gpointer data) {
    struct server *server = data;
    for (;;) {
        ThriftTransport *socket = thrift_server_transport_accept(server->transport, NULL);
        ThriftProtocol *protocol = protocol_over(socket);
        GError *error = NULL;
        while (thrift_processor_process(server->processor, protocol, protocol, &error)) {
        }
        g_clear_error(&error);
        disconnect(protocol);
    }
    return NULL;
}

/* Serves on a local port that the system chooses, and prints it. */
static void start_server(GType handler_type, GType processor_type) {
    struct server *server = g_new0(struct server, 1);
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    socklen_t size = sizeof(address);
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    if (bind(listener, (struct sockaddr *)&address, size) != 0 || listen(listener, 16) != 0 ||
        getsockname(listener, (struct sockaddr *)&address, &size) != 0) {
        perror("peer");
        exit(1);
    }
    server->transport = g_object_new(THRIFT_TYPE_SERVER_SOCKET, NULL);
    THRIFT_SERVER_SOCKET(server->transport)->sd = listener;
    server->processor =
        g_object_new(processor_type, "handler", g_object_new(handler_type, NULL), NULL);
    printf("%d ", ntohs(address.sin_port));
    g_thread_new("server", serve_connections, server);
}

static void serve(void) {
    events = g_string_new("");
    start_server(broker_get_type(), TYPE_TAV_BROKER_PROCESSOR);
    start_server(emp_get_type(), TYPE_TAV_EMP_PROCESSOR);
    start_server(callbacks_get_type(), TYPE_TAV_EMP_EVENT_PROCESSOR);
    printf("\n");
    (void)fflush(stdout);
    while (getchar() != EOF) {
    }
}

/* --- Calling side */

static ThriftProtocol *connection(int port) {
    ThriftTransport *socket =
        g_object_new(THRIFT_TYPE_SOCKET, "hostname", "127.0.0.1", "port", port, NULL);
    GError *error = NULL;
    if (!thrift_transport_open(socket, &error)) {
        g_printerr("peer: %s\n", error->message);
        exit(1);
    }
    return protocol_over(socket);
}

static gpointer client_over(GType type, ThriftProtocol *protocol) {
    return g_object_new(type, "input_protocol", protocol, "output_protocol", protocol, NULL);
}

/* Takes ownership of `result` and `error`. */
static void report(const char *what, gboolean done, gchar *result, GError *error) {
    const char *own_words = "application error: ";
    printf("%s = ", what);
    if (done) {
        printf("%s", result != NULL ? result : "NULL");
    } else if (error == NULL) {
        printf("FALSE without an error");
    } else if (error->domain == THRIFT_APPLICATION_EXCEPTION_ERROR) {
        printf("exception %d", error->code);
        /* These two have an empty text, for which each language prints something else. */
        if (error->code != THRIFT_APPLICATION_EXCEPTION_ERROR_INVALID_MESSAGE_TYPE &&
            error->code != THRIFT_APPLICATION_EXCEPTION_ERROR_WRONG_METHOD_NAME) {
            /* GLib's library puts this before the peer's text. */
            g_assert_true(g_str_has_prefix(error->message, own_words));
            printf(": %s", error->message + strlen(own_words));
        }
    } else if (error->domain == THRIFT_TRANSPORT_ERROR) {
        printf("connection closed");
    } else {
        printf("broken message");
    }
    printf("\n");
    (void)fflush(stdout);
    g_clear_error(&error);
    g_free(result);
}

static void report_open_emp(const char *what, ThriftProtocol *protocol, const gchar *name) {
    GError *error = NULL;
    TavBrokerClient *client = client_over(TYPE_TAV_BROKER_CLIENT, protocol);
    ConnectionInfo *info = g_object_new(TYPE_CONNECTION_INFO, NULL);
    gboolean done =
        tav_broker_client_open_emp(TAV_BROKER_IF(client), &info, name, "2.1", "key", &error);
    gchar *result = g_strdup_printf("%d|%d|%s", info->callbackServicePort, info->empServicePort,
                                    info->empID);
    report(what, done, result, error);
    g_object_unref(info);
    g_object_unref(client);
}

static void report_close_emp(const char *what, ThriftProtocol *protocol, gint32 callback_port,
                             gint32 emp_port, const gchar *emp_id) {
    GError *error = NULL;
    TavBrokerClient *client = client_over(TYPE_TAV_BROKER_CLIENT, protocol);
    ConnectionInfo *info =
        g_object_new(TYPE_CONNECTION_INFO, "callbackServicePort", callback_port,
                     "empServicePort", emp_port, "empID", emp_id, NULL);
    gboolean result = FALSE;
    gboolean done =
        tav_broker_client_close_emp(TAV_BROKER_IF(client), &result, info, &error);
    report(what, done, g_strdup(result ? "true" : "false"), error);
    g_object_unref(info);
    g_object_unref(client);
}

static gboolean execute(ThriftProtocol *protocol, gint32 port, const gchar *cmd, const gchar *p1,
                        const gchar *p3, const gchar *p4, gchar **result, GError **error) {
    TavBrokerClient *client = client_over(TYPE_TAV_BROKER_CLIENT, protocol);
    gboolean done = tav_broker_client_execute(TAV_BROKER_IF(client), result, port, cmd, p1, "", p3,
                                              p4, error);
    g_object_unref(client);
    return done;
}

static void report_execute(const char *what, ThriftProtocol *protocol, const gchar *cmd,
                           const gchar *param1) {
    GError *error = NULL;
    gchar *result = NULL;
    gboolean done = execute(protocol, 0, cmd, param1, "", "", &result, &error);
    report(what, done, result, error);
}

static void report_length(const char *what, ThriftProtocol *protocol, const gchar *cmd) {
    GError *error = NULL;
    gchar *result = NULL;
    gboolean done = execute(protocol, 0, cmd, "", "", "", &result, &error);
    report(what, done, result != NULL ? g_strdup_printf("%zu", strlen(result)) : NULL, error);
    g_free(result);
}

static void report_open(const char *what, ThriftProtocol *protocol, gint32 client_id) {
    GError *error = NULL;
    TavEmpClient *client = client_over(TYPE_TAV_EMP_CLIENT, protocol);
    gboolean result = FALSE;
    gboolean done = tav_emp_client_open(TAV_EMP_IF(client), &result, client_id, "camera", "2.1",
                                        "key", &error);
    report(what, done, g_strdup(result ? "true" : "false"), error);
    g_object_unref(client);
}

static void report_close(const char *what, ThriftProtocol *protocol, gint32 client_id) {
    GError *error = NULL;
    TavEmpClient *client = client_over(TYPE_TAV_EMP_CLIENT, protocol);
    gint32 result = 0;
    gboolean done = tav_emp_client_close(TAV_EMP_IF(client), &result, client_id, &error);
    report(what, done, g_strdup_printf("%d", result), error);
    g_object_unref(client);
}

static void report_execute_at_emp(const char *what, ThriftProtocol *protocol, const gchar *cmd) {
    GError *error = NULL;
    TavEmpClient *client = client_over(TYPE_TAV_EMP_CLIENT, protocol);
    gchar *result = NULL;
    gboolean done = tav_emp_client_execute(TAV_EMP_IF(client), &result, 2147483647, cmd, "eins",
                                           "zwei", "drei", "vier", &error);
    report(what, done, result, error);
    g_object_unref(client);
}

static void report_with_list(const char *what, ThriftProtocol *protocol, const gchar *cmd) {
    GError *error = NULL;
    TavEmpClient *client = client_over(TYPE_TAV_EMP_CLIENT, protocol);
    ParamList *list =
        g_object_new(TYPE_PARAM_LIST, "param1", "a", "param2", "b", "param3", "c", "param4", "d",
                     "param5", "", "param6", "f", "param7", "g", "param8", "h", "param9", "i",
                     "param10", "j", NULL);
    gchar *result = NULL;
    gboolean done = tav_emp_client_execute_with_param_list(TAV_EMP_IF(client), &result, 5, cmd,
                                                           list, &error);
    report(what, done, result, error);
    g_object_unref(list);
    g_object_unref(client);
}

static void call_broker(int port) {
    ThriftProtocol *protocol = connection(port);
    gchar *text = long_text();
    GError *error = NULL;
    gchar *result = NULL;
    report_open_emp("OpenEmp", protocol, "camera");
    report_open_emp("OpenEmp fails", protocol, "none");
    gboolean done = execute(protocol, -2147483647 - 1, "echo", "one", "Gr\u00fc\u00dfe \u20ac",
                            "\"four\"\\", &result, &error);
    report("Execute at the broker", done, result, error);
    report_execute("Execute at the broker fails", protocol, "fail", "");
    report_execute("Execute fails with an application exception", protocol, "failwell", "");
    report_close_emp("CloseEmp", protocol, 49801, -49802, "camera|2.1|key");
    report_close_emp("CloseEmp, false", protocol, 0, 0, "");
    report_close_emp("CloseEmp fails", protocol, 0, 0, "none");
    report_execute("100000 bytes sent", protocol, "length", text);
    report_length("100000 bytes received", protocol, "long");
    report_execute("NUL sent", protocol, "length", with_nul);
    report_length("NUL received", protocol, "nul");
    g_free(text);
    disconnect(protocol);
}

static void call_emp(int port) {
    ThriftProtocol *protocol = connection(port);
    report_open("Open", protocol, 2147483647);
    report_open("Open, false", protocol, 0);
    report_open("Open fails", protocol, -1);
    report_close("Close", protocol, 3);
    report_close("Close, zero", protocol, 10);
    report_close("Close fails", protocol, -1);
    report_execute_at_emp("Execute at the EMP", protocol, "echo");
    report_execute_at_emp("Execute at the EMP fails", protocol, "fail");
    report_with_list("ExecuteWithParamList", protocol, "echo");
    report_with_list("ExecuteWithParamList fails", protocol, "fail");
    disconnect(protocol);
}

static void send_event(ThriftProtocol *protocol, gint32 type, const gchar *param1,
                       const gchar *param2) {
    TavEmpEventClient *client = client_over(TYPE_TAV_EMP_EVENT_CLIENT, protocol);
    tav_emp_event_client_callback(TAV_EMP_EVENT_IF(client), type, param1, param2, NULL);
    g_object_unref(client);
}

static void call_event(int broker_port, int event_port) {
    ThriftProtocol *broker = connection(broker_port);

    ThriftProtocol *protocol = connection(event_port);
    send_event(protocol, 3, "started", "Gr\u00fc\u00dfe");
    send_event(protocol, -1, "", "");
    send_event(protocol, 4, "still", "here");
    report_close("Callback, then an unknown operation", protocol, 3);
    report_execute("Callback", broker, "events", "");
    disconnect(protocol);

    protocol = connection(event_port);
    send_event(protocol, 0, "fail", "");
    report_close("Callback fails, then an unknown operation", protocol, 3);
    report_execute("Callback fails", broker, "events", "");
    disconnect(protocol);

    disconnect(broker);
}

/* Requests get this message type while it is set. In GObject a single object cannot have its
 * own method, so this changes the class of all protocols. */
static ThriftMessageType retyped;
static gint32 (*write_message_begin)(ThriftProtocol *, const gchar *, const ThriftMessageType,
                                     const gint32, GError **);

static gint32 write_retyped_message_begin(ThriftProtocol *protocol, const gchar *name,
                                          const ThriftMessageType type, const gint32 seqid,
                                          GError **error) {
    return write_message_begin(protocol, name, retyped != 0 ? retyped : type, seqid, error);
}

enum operation { OPEN_EMP_AT_BROKER, OPEN_EMP_AT_EMP, CLOSE_AT_EMP, CLOSE_AT_BROKER };

static void report_apart(const char *what, int port, enum operation operation,
                         ThriftMessageType type) {
    ThriftProtocol *protocol = connection(port);
    gchar *then = g_strconcat(what, ", then", NULL);
    retyped = type;
    if (operation == OPEN_EMP_AT_BROKER || operation == OPEN_EMP_AT_EMP) {
        report_open_emp(what, protocol, "camera");
    } else {
        report_close(what, protocol, 3);
    }
    retyped = 0;
    if (operation == OPEN_EMP_AT_BROKER || operation == CLOSE_AT_BROKER) {
        report_open_emp(then, protocol, "camera");
    } else {
        report_close(then, protocol, 3);
    }
    g_free(then);
    disconnect(protocol);
}

static void call_wrongly(int broker_port, int emp_port, int event_port) {
    ThriftProtocolClass *class = g_type_class_ref(protocol_type);
    write_message_begin = class->write_message_begin;
    class->write_message_begin = write_retyped_message_begin;

    report_apart("Unknown operation at the broker", broker_port, CLOSE_AT_BROKER, T_CALL);
    report_apart("Unknown operation at the EMP", emp_port, OPEN_EMP_AT_EMP, T_CALL);
    report_apart("T_ONEWAY request at the broker", broker_port, OPEN_EMP_AT_BROKER, T_ONEWAY);
    report_apart("T_ONEWAY request at the EMP", emp_port, CLOSE_AT_EMP, T_ONEWAY);
    report_apart("T_REPLY request at the broker", broker_port, OPEN_EMP_AT_BROKER, T_REPLY);
    report_apart("T_REPLY request at the EMP", emp_port, CLOSE_AT_EMP, T_REPLY);

    ThriftProtocol *protocol = connection(event_port);
    retyped = T_REPLY;
    report_open_emp("T_REPLY request at the callback service", protocol, "camera");
    retyped = 0;
    disconnect(protocol);

    protocol = connection(broker_port);
    report_execute("No result", protocol, "nothing", "");
    report_open_emp("No result, then", protocol, "camera");
    disconnect(protocol);

    protocol = connection(broker_port);
    report_execute("Bytes sent that are not UTF-8", protocol, "length", "\xff\xfe");
    report_open_emp("Bytes sent that are not UTF-8, then", protocol, "camera");
    disconnect(protocol);
}

static void call_odd(int port) {
    const char *const commands[] = {"otherseqid",   "othertype", "othername",
                                    "unknownfield", "nosuccess", "othersuccess"};
    ThriftProtocol *protocol;
    for (size_t i = 0; i < sizeof(commands) / sizeof(commands[0]); ++i) {
        gchar *what = g_strconcat("Reply: ", commands[i], NULL);
        gchar *then = g_strconcat(what, ", then", NULL);
        protocol = connection(port);
        report_execute(what, protocol, commands[i], "");
        report_execute(then, protocol, "good", "");
        disconnect(protocol);
        g_free(then);
        g_free(what);
    }
    protocol = connection(port);
    GError *error = NULL;
    gchar *first = NULL;
    gchar *second = NULL;
    gboolean done = execute(protocol, 0, "tellseqid", "", "", "", &first, &error) &&
                    execute(protocol, 0, "tellseqid", "", "", "", &second, &error);
    report("Sequence ids sent", done, g_strjoin(", ", first, second, NULL), error);
    g_free(first);
    g_free(second);
    report_length("Reply: notutf8", protocol, "notutf8");
    disconnect(protocol);
}

int main(int argc, char **argv) {
    if (argc < 4) {
        g_printerr("usage: peer serve PROTOCOL TRANSPORT | peer call PROTOCOL TRANSPORT "
                   "BROKERPORT EMPPORT EVENTPORT [ODDPORT]\n");
        return 1;
    }
    if (strcmp(argv[2], "json") == 0) {
        printf("unsupported: the library has no thrift_json_protocol.h\n");
        return 0;
    }
    protocol_type = strcmp(argv[2], "binary") == 0 ? THRIFT_TYPE_BINARY_PROTOCOL
                                                   : THRIFT_TYPE_COMPACT_PROTOCOL;
    transport_type = strcmp(argv[3], "buffered") == 0 ? THRIFT_TYPE_BUFFERED_TRANSPORT
                                                      : THRIFT_TYPE_FRAMED_TRANSPORT;
    if (strcmp(argv[1], "serve") == 0) {
        serve();
        return 0;
    }
    int ports[4] = {0};
    for (int i = 4; i < argc && i < 8; ++i) {
        ports[i - 4] = (int)strtol(argv[i], NULL, 10);
    }
    call_broker(ports[0]);
    call_emp(ports[1]);
    call_event(ports[0], ports[2]);
    call_wrongly(ports[0], ports[1], ports[2]);
    if (ports[3] != 0) {
        call_odd(ports[3]);
    }
    return 0;
}
